#pragma once

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QWidget>

#include <functional>

class QTimer;

namespace scanresults {
class FileRecoveryDetailPanel;
class RecoveryToolbar;
class ResultsArea;
class ScanHeader;
class ScanLogExporter;
class ScanResultsModel;
class ScanTreeModel;
} // namespace scanresults

/// A running or finished scan: progress, directory tree, table of found files, log export and the
/// start of a recovery. It talks to no service: a flow calls its slots and follows its signals, and
/// compares session ids before it calls. GUI thread only.
class ScanResultsPage : public QWidget
{
    Q_OBJECT

public:
    enum class State {
        Idle,
        Running,
        Paused,
        Completed,
        Stopped,
        Failed,
        ConnectionLost, ///< How the scan stands is not known until the service answers again.
        Interrupted     ///< The service does not have the scan any more.
    };

    /// Asks for a directory; empty when the user cancels.
    using DirectoryChooser =
        std::function<QString(QWidget *parent, const QString &title, const QString &start)>;

    explicit ScanResultsPage(QWidget *parent = nullptr);
    ~ScanResultsPage() override;

    State state() const { return m_state; }
    /// Whether a scan of this page is or may be under way in the service.
    bool isScanUnderWay() const;
    /// Empty until the service has named the session.
    QString sessionId() const { return m_sessionId; }
    void setSessionId(const QString &sessionId) { m_sessionId = sessionId; }
    QString devicePath() const { return m_devicePath; }
    QString fileSystem() const { return m_fileSystem; }
    QString outputPath() const;

    /// Whether the session's full list is of use now; a hidden page keeps the rows that it has,
    /// unless it knows that some are missing.
    bool wantsFullList() const { return isVisible() || m_missesFiles; }

    /// Whether batches of this scan were dropped in a pause, or sent while the link was down, and
    /// have not come back since.
    bool missesFiles() const { return m_missesFiles; }

    /// Names of these files in the order of the table.
    QStringList fileNamesForIds(const QStringList &fileIds) const;
    /// Ids of the ticked files in the order of the table, hidden ones too.
    QStringList checkedFileIds() const;
    /// Bytes of all ticked files, held within the type's limits.
    qint64 checkedBytes() const;
    /// Bytes of the largest ticked file; 0 without one.
    qint64 largestCheckedBytes() const;

    /// For tests: what stands in for the directory dialog.
    void setDirectoryChooser(const DirectoryChooser &chooser);

public slots:
    void initForScan(const QString &device, const QString &fileSystem, const QString &sessionId);
    /// `progress` in percent. The number of files and the time are the page's own.
    void updateProgress(double progress, int filesFound, qint64 elapsedMs,
                        const QString &phaseText);
    /// Batches that come during a pause are dropped; replaceFiles() brings them back.
    void addFiles(const QJsonArray &files);
    /// Ticks, current row, chosen directory and filters stay, by file id and by path.
    void replaceFiles(const QJsonArray &files);
    void onScanCompleted(const QJsonObject &summary);
    void onScanStopped();
    void onScanError(const QString &message);
    void onPauseRequestFailed(const QString &message);
    void onResumeRequestFailed(const QString &message);
    void onStopRequestFailed(const QString &message);
    /// The link to the service broke. Does nothing unless a scan runs or is paused.
    void onConnectionLost();
    /// The link is back, and the service still has the scan. `isPaused` and `elapsedMs` are the
    /// service's. Does nothing unless the link was lost.
    void onConnectionRestored(bool isPaused, qint64 elapsedMs);
    /// The link is back, and the scan is not under way any more without having come to an end of
    /// its own. Does nothing unless the link was lost.
    void onScanInterrupted(const QString &reason);
    /// Whether the scan was paused when the link was lost.
    bool wasPaused() const { return m_wasPaused; }

signals:
    void requestStartRecovery(const QString &sessionId, const QStringList &fileIds,
                              const QString &outputDir, const QString &conflictPolicy);
    void requestPauseScan(const QString &sessionId);
    void requestResumeScan(const QString &sessionId);
    void requestStopScan(const QString &sessionId);
    void requestRescan(const QString &device, const QString &fileSystem);

private:
    void arrange();
    void wireScan();
    void wireResults();
    void setState(State state);
    void finish(State state, const QString &title, const QString &text);
    void showFound();
    void togglePause();
    void showPaused();
    void showRunning();
    void pressStop();
    void startTiming();
    void stopTiming();
    qint64 elapsedMs() const;
    void showElapsed();
    void showEmptyState();
    void browseOutput();
    void exportLog();
    void onLogWritten(const QString &path, const QString &error);
    void startRecovery();
    void showDetails(const QModelIndex &index);

    State m_state = State::Idle;
    QString m_sessionId;
    QString m_devicePath;
    QString m_fileSystem;
    QString m_failure; ///< Words of the last scan error.
    bool m_missesFiles = false;
    bool m_wasPaused = false;
    int m_percent = 0;
    QElapsedTimer m_runClock;   ///< Since the start or the last resume.
    qint64 m_accumulatedMs = 0; ///< Before that.
    QTimer *m_elapsedTimer;
    DirectoryChooser m_chooseDirectory;

    scanresults::ScanResultsModel *m_model;
    scanresults::ScanTreeModel *m_directories;
    scanresults::ScanHeader *m_header;
    scanresults::ResultsArea *m_results;
    scanresults::RecoveryToolbar *m_toolbar;
    scanresults::ScanLogExporter *m_exporter;
    scanresults::FileRecoveryDetailPanel *m_details;
};
