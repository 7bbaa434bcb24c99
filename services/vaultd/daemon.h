#pragma once

#include "common/servicehost.h"
#include "vaultd/deploy/protection.h"
#include "vaultd/filerequests.h"
#include "vaultd/hook/hookservice.h"
#include "vaultd/rights/authenticator.h"
#include "vaultd/settingsrequests.h"
#include "vaultd/system/systemrequests.h"
#include "vaultd/users/vaultusers.h"

#include <QHash>
#include <QTimer>

#include <mutex>

namespace services {
namespace vaultd {

/// The whole service: the vaults of all users or a single one, and the methods on a socket.
class Daemon
{
public:
    struct Options
    {
        QString vaultParent; ///< An existing folder; empty: every user's home, for root only.
        QString stateDir;
        QString passwordFile; ///< Empty: the system's authentication modules.
        QString socketName;   ///< For all users: in a folder of root's, made if missing.
        QString program;      ///< This one, to start again for a password.
        QByteArray hookEntry; ///< As Protection::Options; empty: no hook.
        QString preloadList = QStringLiteral("/etc/ld.so.preload");
        QByteArray hookFolder; ///< The hook's maps and sockets.
    };

    explicit Daemon(const Options &options);
    ~Daemon();

    /// Listens, opens the vaults and the state folder. Without all of it there is no service.
    [[nodiscard]] bool start(QString *error);

private:
    void onOpened(UserVault *vault);
    void onFilesChanged(const UserVault &vault, const VaultChanges &changes);
    ServiceHost::PeerFilter ownerOf(const UserVault &vault) const;
    [[nodiscard]] bool listen(QString *error);
    void linkFormerName() const;
    [[nodiscard]] bool startHook(QString *error);

    Options m_options;
    std::mutex m_keepersMutex;
    QHash<uid_t, Keeper *> m_keepers; ///< Also for the hook's threads.
    ServiceHost m_host;
    VaultUsers m_users;
    std::unique_ptr<HookService> m_hook; // before the vaults go, whose keepers it calls
    Protection m_protection;
    Authenticator m_authenticator;
    SettingsRequests m_settings;
    SystemRequests m_system;
    FileRequests m_files;
    QTimer m_reopen; ///< For homes that were not there before.
};

} // namespace vaultd
} // namespace services
