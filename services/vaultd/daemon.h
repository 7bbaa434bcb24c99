#pragma once

#include "common/servicehost.h"
#include "vaultd/filerequests.h"
#include "vaultd/hookstate.h"
#include "vaultd/settingsrequests.h"
#include "vaultd/systemrequests.h"

#include <QFileSystemWatcher>
#include <QTimer>

namespace services {
namespace vaultd {

/// The whole service: a vault, what is kept in the state folder, and the methods on a socket.
class Daemon
{
public:
    struct Options
    {
        QString vaultParent; ///< An existing folder.
        QString stateDir;
        QString passwordFile; ///< Empty: nobody is let in.
        QString socketName;
        QString hookLibrary; ///< Empty: none.
        QString preloadList = QStringLiteral("/etc/ld.so.preload");
        int checkIntervalMs = 60 * 1000; ///< Between two looks at ages and free space.
        VaultThread::Environment environment = VaultThread::Environment::ofSystem();
    };

    explicit Daemon(const Options &options);

    /// Listens, opens the vault and the state folder. Without all of it there is no service.
    [[nodiscard]] bool start(QString *error);

private:
    void registerMethods();
    QJsonObject status() const;
    Reply authenticate(const QJsonObject &params) const;
    void watch();
    void onChanges(const VaultChanges &changes);
    void warnOfSpace();

    Options m_options;
    VaultLayout m_layout;
    FileIndex m_index;
    ServiceHost m_host;
    SettingsRequests m_settings;
    SystemRequests m_system;
    QFileSystemWatcher m_watcher;
    QTimer m_noticed; ///< Lets several changes of the folder pass as one.
    QTimer m_check;
    VaultThread m_vault;
    FileRequests m_files;
};

} // namespace vaultd
} // namespace services
