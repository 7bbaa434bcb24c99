#pragma once

#include "common/mailbox.h"
#include "recoveryd/devices/image.h"
#include "recoveryd/scan/foundfile.h"
#include "recoveryd/workcontrol.h"

#include <QObject>
#include <QStringList>

#include <memory>

class QCryptographicHash;

namespace services {

class OutputFile;

namespace recoveryd {

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

/// Who is told about a recovery; on the thread of the mailbox that the task is given.
class RecoveryListener
{
public:
    virtual ~RecoveryListener() = default;

    /// Percent of the bytes; files done of all.
    virtual void onProgress(const QString &recoveryId, double percent, int processed,
                            int total) = 0;
    /// Once when a file begins and once with its final status.
    virtual void onFileStatus(const QString &recoveryId, const FileResult &result) = 0;
    /// The last call. `error` is set if nothing could be done at all.
    virtual void onFinished(const QString &recoveryId, bool wasStopped, const QString &error) = 0;
};

/// Writes files out, one after another, on a worker thread: run it by a queued call; it stops by
/// its control. Inbox and listener must outlive it. Every file is written under a temporary name,
/// read back and compared by SHA-256 before it gets its own name.
class RecoveryTask : public QObject
{
    Q_OBJECT

public:
    RecoveryTask(const RecoveryPlan &plan, std::shared_ptr<WorkControl> control, Mailbox &inbox,
                 RecoveryListener &listener);

    /// The temporary names of a recovery begin like this.
    static QString temporaryPrefix(const QString &recoveryId);

public slots:
    void run();

private:
    enum class Step { Done, Stopped, Failed };

    void recover(const FoundFile &file);
    Step writeFile(const FoundFile &file, OutputFile &output, FileResult *result);
    Step copyRange(const Range &range, OutputFile &output, QCryptographicHash &hash,
                   FileResult *result);
    void verifyAndPublish(const FoundFile &file, const QString &sha256, OutputFile &output,
                          FileResult *result);
    void tellProgress();
    void tellStatus(const FileResult &result);
    void tellFinished(bool wasStopped, const QString &error);
    static void note(FileResult *result, const QString &what);

    RecoveryPlan m_plan;
    std::shared_ptr<WorkControl> m_control;
    Mailbox &m_inbox;
    RecoveryListener &m_listener;
    qint64 m_totalBytes = 0;
    qint64 m_doneBytes = 0;
    qint64 m_unreadBytes = 0; ///< Of the current file; filled with zeros.
    int m_processed = 0;
};

} // namespace recoveryd
} // namespace services
