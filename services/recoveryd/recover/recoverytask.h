#pragma once

#include "common/mailbox.h"
#include "recoveryd/devices/image.h"
#include "recoveryd/recover/safename.h"
#include "recoveryd/session/resultlog.h"
#include "recoveryd/workcontrol.h"

#include <QObject>
#include <QStringList>

#include <memory>

class QCryptographicHash;

namespace services {

class OutputFile;

namespace recoveryd {

class ContentReader;
class MediaReader;

/// What became of one file.
struct FileResult
{
    QString fileId;
    QString name;   ///< As written.
    QString status; ///< "success", "partial", "failed", "skipped"; "running" before that.
    QString detail;
    QString foundPath;  ///< Where it was before, with the name that it had.
    QString outputPath; ///< Absolute; empty if nothing was written.
    QString sha256;     ///< Of what was written.
    QStringList timeline;
    qint64 writtenBytes = 0;

    /// An element of fileStatuses.
    QJsonObject toJson() const;
};

struct RecoveryPlan
{
    enum class Conflict { Rename, Skip };

    QString recoveryId;
    Volume volume;          ///< The scanned device.
    QString resultsPath;    ///< Of the session's ResultLog.
    QVector<int> numbers;   ///< Of the files within the session.
    QStringList missingIds; ///< Asked for, but not in the session; they fail.
    qint64 totalBytes = 0;  ///< That will be written.
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
/// read back and compared by SHA-256 before it gets its own name, in its own folder below the
/// output directory. Holes stay holes; what cannot be read or is not known becomes zeros, and the
/// file is partial.
class RecoveryTask : public QObject
{
    Q_OBJECT

public:
    RecoveryTask(const RecoveryPlan &plan, std::shared_ptr<WorkControl> control, Mailbox &inbox,
                 RecoveryListener &listener);
    ~RecoveryTask() override;

    /// The temporary names of a recovery begin like this; all are directly in its output directory.
    static QString temporaryPrefix(const QString &recoveryId);
    /// Bytes that writing the file takes; holes take none.
    static qint64 dataBytes(const FileContent &content);

public slots:
    void run();

private:
    enum class Step { Done, Stopped, Failed };

    void recover(int number);
    /// The folder for the file, made; relative to the output directory, empty or with a slash at
    /// its end. False with the reason.
    [[nodiscard]] bool makeFolder(const QString &foundPath, QString *folder, QString *error);
    Step writeFile(const ResultRow &row, const QString &folder, FileResult *result);
    Step copyContent(const FileContent &content, ContentReader &reader, OutputFile &output,
                     QCryptographicHash *hash, FileResult *result);
    void verifyAndPublish(const ResultRow &row, const QString &sha256, qint64 lostBytes,
                          const QString &folder, OutputFile &output, FileResult *result);
    /// The name that the file got, in `result`.
    [[nodiscard]] bool publish(const QString &folder, OutputFile &output, FileResult *result);
    void tellProgress();
    void tellStatus(const FileResult &result);
    void tellFinished(bool wasStopped, const QString &error);
    static void note(FileResult *result, const QString &what);

    RecoveryPlan m_plan;
    std::shared_ptr<WorkControl> m_control;
    Mailbox &m_inbox;
    RecoveryListener &m_listener;
    std::unique_ptr<MediaReader> m_media;
    ResultLog m_log;
    NameRules m_rules = NameRules::Windows;
    QHash<QString, QString> m_folders; ///< Made folders by the found ones.
    qint64 m_doneBytes = 0;
    int m_processed = 0;
};

} // namespace recoveryd
} // namespace services
