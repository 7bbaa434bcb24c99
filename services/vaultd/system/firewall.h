#pragma once

#include "common/mailbox.h"
#include "core/workerthread.h"
#include "vaultd/system/firewallrules.h"

#include <QHash>
#include <QObject>
#include <QTimer>

#include <functional>

namespace services::vaultd {

/// Opens the port of a user's shares in the machine's firewall for as long as the user's program
/// listens there. What is open stands in a file, so that nothing stays open behind a crash. Lives
/// on the service's thread; the firewall's programs run on another.
class Firewall : public QObject
{
    Q_OBJECT

public:
    using Done = std::function<void(bool isDone, const QString &message)>;

    explicit Firewall(const QString &stateFile);
    /// Closes what is open.
    ~Firewall() override;

    /// Closes what an earlier service has left open, and listens from then on.
    void start();
    /// One port a user; a second one takes the place of the first. Refused for a port at which
    /// another user listens, and for privileged ports of users.
    void sync(uid_t uid, bool isActive, int port, const Done &done);

private:
    void apply(const Done &done);
    void closeAbandoned();

    QString m_stateFile;
    QHash<uid_t, int> m_ports;
    QHash<uid_t, int> m_misses; ///< How often in a row nobody listened.
    QTimer m_watch;
    Mailbox m_inbox; // before the thread, which posts to it until it ends
    Mailbox *m_jobs = nullptr;
    core::WorkerThread m_thread;
};

/// Closes whatever the file says is open. Waits for the firewall's programs.
[[nodiscard]] bool closeFirewall(const QString &stateFile, QString *error);

/// The users that listen for TCP connections at the port, of /proc/net/tcp or tcp6.
QList<uid_t> listeners(const QByteArray &table, int port);

} // namespace services::vaultd
