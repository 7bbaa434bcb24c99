#pragma once

#include "ui/pages/recoverydetaildialog/fileresult.h"
#include "ui/pages/recoveryprogresspage/recoveryrules.h"

#include <QJsonObject>
#include <QVector>
#include <QWidget>

#include <functional>

class QHBoxLayout;
class QLabel;
class QPushButton;

namespace recoveryprogress {
class FileList;
class ProgressCard;
} // namespace recoveryprogress
namespace ui {
namespace common {
class ElidedLabel;
}
} // namespace ui

/// One recovery, file by file. It talks to no service: a flow calls its slots and follows its
/// signals, and compares recovery ids before it calls. GUI thread only.
class RecoveryProgressPage : public QWidget
{
    Q_OBJECT

public:
    enum class State { Idle, Running, Completed, Stopped, Failed, ConnectionLost };

    /// A file that was chosen for the recovery.
    struct File
    {
        QString fileId;
        QString name;
    };

    /// Shows a directory in the file manager; false if there is none.
    using DirectoryOpener = std::function<bool(const QString &directory)>;
    /// Asks where to save; empty when the user cancels.
    using SaveChooser = std::function<QString(QWidget *parent, const QString &suggested)>;

    explicit RecoveryProgressPage(QWidget *parent = nullptr);

    State state() const { return m_state; }
    /// Whether the end of the task is still to come, as far as is known.
    bool isRecoveryUnderWay() const;
    QString sessionId() const { return m_sessionId; }
    /// Empty until the service has named the task; it cannot be stopped before.
    QString recoveryId() const { return m_recoveryId; }
    void setRecoveryId(const QString &recoveryId);

    /// Starts over for one task. `fileCount` is what was asked for, also where `files` names fewer.
    void initForRecovery(const QString &sessionId, const QString &recoveryId,
                         const QString &targetDevice, const QString &outputDir, int fileCount,
                         const QVector<File> &files);

    /// For tests: what stands in for the file manager and for the dialog.
    void setDirectoryOpener(const DirectoryOpener &opener) { m_openDirectory = opener; }
    void setSaveChooser(const SaveChooser &chooser) { m_chooseSave = chooser; }

public slots:
    /// `progress` in percent.
    void updateProgress(double progress, int processed, int total);
    void updateFileStatus(const QString &fileId, const QString &status, const QString &detail,
                          const QStringList &timeline);
    void onRecoveryCompleted(const QJsonObject &summary);
    void onRecoveryStopped();
    void onRecoveryError(const QString &message);
    /// The service did not take the request to stop; the recovery goes on.
    void onStopRequestFailed(const QString &message);
    /// The link to the service broke. Does nothing unless a recovery runs; what the service still
    /// tells about its end afterwards is shown.
    void onConnectionLost();
    /// The link is back, and the recovery still runs. Does nothing unless the link was lost.
    void onConnectionRestored();
    /// The task as the service keeps it: tells of files what no event has told.
    void setRecoveryTaskDetail(const QJsonObject &detail);
    /// Shows the results that the service's record of the task holds, where events were missed.
    void applyFileStatuses(const QJsonObject &detail);
    void onTaskDetailFailed(const QString &message);

signals:
    void requestStopRecovery(const QString &recoveryId);
    void requestBackToScanResults();

private:
    QHBoxLayout *buildHeader();
    QWidget *buildToolbar();
    void pressStop();
    void showStopButton();
    void showCounters(int succeeded, int failed, int skipped);
    void openTarget();
    void saveReport();
    void onReportWritten(const QString &path, const QString &error);
    void finish(State state, const QString &text, const QString &tone);
    void onFinished();
    void showErrorNotice(const QString &title, const QString &message);
    void showDetailForRow(int row);
    recoveryresult::FileResult resultForRow(int row) const;

    State m_state = State::Idle;
    bool m_isStopping = false; ///< A request to stop is under way.
    QString m_sessionId;
    QString m_recoveryId;
    QString m_outputDir;
    DirectoryOpener m_openDirectory;
    SaveChooser m_chooseSave;
    QJsonObject m_taskDetail;
    recoveryprogress::RecoveryTally m_tally;

    ui::common::ElidedLabel *m_session = nullptr;
    recoveryprogress::ProgressCard *m_progress;
    recoveryprogress::FileList *m_files;
    QLabel *m_succeeded = nullptr;
    QLabel *m_failed = nullptr;
    QLabel *m_skipped = nullptr;
    QPushButton *m_open = nullptr;
    QPushButton *m_save = nullptr;
    QPushButton *m_stop = nullptr;
    QPushButton *m_back = nullptr;
};
