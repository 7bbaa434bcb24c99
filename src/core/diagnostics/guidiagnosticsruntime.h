#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>

class QTimer;

namespace core {
namespace diagnostics {

/// Leaves traces that tell after the fact whether the GUI hung and what it was doing: a heartbeat
/// file rewritten every second by the GUI thread, a snapshot of the environment at start, and a log
/// of slow operations. Says nothing to the user; files that cannot be written are skipped.
class GuiDiagnosticsRuntime : public QObject
{
    Q_OBJECT

public:
    explicit GuiDiagnosticsRuntime(QObject *parent = nullptr);

    static QString runtimeDirPath();
    static QString heartbeatFilePath();
    static QString environmentSnapshotPath();
    static QString slowOpsLogPath();
    static QString diagnosticsRootPath();

    /// Watches the application's events, writes the first heartbeat and starts the timer.
    void start();
    /// Module key of the page now shown.
    void setCurrentPage(const QString &page);
    /// One word for what just happened; blanks only are ignored.
    void noteAction(const QString &action);

    /// The names of the environment variables that matter for a desktop problem, in log order.
    static QStringList environmentVariableNames();
    static void writeEnvironmentSnapshot(const QString &mode, const QString &platform, qint64 pid,
                                         const QString &appVersion);
    /// Appends one line; above 1000 ms the line has the level ERROR. Any thread.
    static void appendSlowOperation(const QString &name, qint64 elapsedMs);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void writeHeartbeat();

    QTimer *m_timer;
    QString m_currentPage;
    QString m_lastAction;
    QDateTime m_lastActionAt;
    QByteArray m_lastWritten;
};

} // namespace diagnostics
} // namespace core
