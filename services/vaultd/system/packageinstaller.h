#pragma once

#include "common/mailbox.h"
#include "common/polkit.h"
#include "core/workerthread.h"
#include "vaultd/users/useridentity.h"

#include <QObject>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>

class QProcess;

namespace services::vaultd {

/// Installs a package of the user's by the system's package manager, once an administrator has
/// allowed it. One at a time. Lives on the service's thread; the package is copied on another.
class PackageInstaller : public QObject
{
    Q_OBJECT

public:
    struct Result
    {
        bool isInstalled = false;
        QString message; ///< The package manager's last line, or why it was not called.
        QString sha256;  ///< Of the package as it was opened; empty if it was not read.
    };
    using Done = std::function<void(const Result &result)>;
    /// Percent, and what is being done, in the package manager's words.
    using Progress = std::function<void(int percent, const QString &message)>;

    /// `folder`: for the copy and the package manager's output; made if missing, for root alone.
    explicit PackageInstaller(const QString &folder);
    ~PackageInstaller() override;

    void install(const QString &path, const core::ipc::Peer &peer, const Progress &progress,
                 const Done &done);

private:
    void onCopied(const core::ipc::Peer &peer, const QString &sha256);
    void startManager();
    void readLog();
    void finish(bool isInstalled, const QString &message);
    QString copyPath() const;
    QString logPath() const;

    QString m_folder;
    Polkit m_polkit;
    Progress m_progress;
    Done m_done; ///< Empty: nothing is under way.
    QString m_sha256;
    QString m_lastLine;
    qint64 m_logRead = 0;
    std::unique_ptr<QProcess> m_manager;
    QTimer m_watch;
    std::atomic<bool> m_stop{false};
    Mailbox m_inbox; // before the thread, which posts to it until it ends
    Mailbox *m_jobs = nullptr;
    core::WorkerThread m_thread;
};

/// A line of the package manager's status: "pmstatus:name:percent:text". False for other lines.
bool parseStatusLine(const QByteArray &line, int *percent, QString *text);

} // namespace services::vaultd
