#pragma once

#include "recoveryd/devices/image.h"
#include "recoveryd/scan/foundfile.h"
#include "recoveryd/workcontrol.h"

#include <QObject>
#include <QStringList>

#include <memory>

class QCryptographicHash;

namespace services {
namespace recoveryd {

class OutputFile;

/// What became of one file.
struct FileResult
{
    QString fileId;
    QString name;   ///< As written.
    QString status; ///< "success", "partial", "failed", "skipped"; "running" before that.
    QString detail;
    QStringList timeline;
    qint64 writtenBytes = 0;

    /// An element of fileStatuses.
    QJsonObject toJson() const;
};

struct RecoveryPlan
{
    enum class Conflict { Rename, Skip };

    QString recoveryId;
    Volume volume;
    QVector<FoundFile> files;
    QStringList missingIds; ///< Asked for, but not in the session; they fail.
    QString outputDir;      ///< Made if it is not there.
    Conflict conflict = Conflict::Rename;
};

/// Writes files out, one after another, on a worker thread: run it by a queued call; it stops by
/// its control. Every file is written under a temporary name, read back and compared by SHA-256
/// before it gets its own name.
class RecoveryTask : public QObject
{
    Q_OBJECT

public:
    RecoveryTask(const RecoveryPlan &plan, std::shared_ptr<WorkControl> control);

    /// The temporary names of a recovery begin like this.
    static QString temporaryPrefix(const QString &recoveryId);

public slots:
    void run();

signals:
    /// Percent of the bytes; files done of all.
    void progress(const QString &recoveryId, double percent, int processed, int total);
    /// Once when a file begins and once with its final status.
    void fileStatus(const QString &recoveryId, const services::recoveryd::FileResult &result);
    /// The last signal. `error` is set if nothing could be done at all.
    void finished(const QString &recoveryId, bool wasStopped, const QString &error);

private:
    enum class Step { Done, Stopped, Failed };

    void recover(const FoundFile &file);
    Step writeFile(const FoundFile &file, OutputFile &output, FileResult *result);
    Step copyRange(const Range &range, OutputFile &output, QCryptographicHash &hash,
                   FileResult *result);
    void verifyAndPublish(const FoundFile &file, const QString &sha256, OutputFile &output,
                          FileResult *result);
    void tellProgress();
    static void note(FileResult *result, const QString &what);

    RecoveryPlan m_plan;
    std::shared_ptr<WorkControl> m_control;
    qint64 m_totalBytes = 0;
    qint64 m_doneBytes = 0;
    qint64 m_unreadBytes = 0; ///< Of the current file; filled with zeros.
    int m_processed = 0;
};

} // namespace recoveryd
} // namespace services

Q_DECLARE_METATYPE(services::recoveryd::FileResult)
