#pragma once

#include "common/outputfile.h"
#include "common/polkit.h"
#include "common/servicehost.h"
#include "recoveryd/devices/deviceservice.h"
#include "recoveryd/forensics/forensicsservice.h"
#include "recoveryd/recover/recoveryservice.h"
#include "recoveryd/scan/scanservice.h"
#include "recoveryd/session/sessionservice.h"
#include "recoveryd/session/sessionstore.h"
#include "recoveryd/vault/vaultservice.h"

namespace services {
namespace recoveryd {

/// The whole service: images and disks, what is kept in the state folder, and the methods on a
/// socket.
class Daemon
{
public:
    struct Options
    {
        QStringList images;
        bool withBlockDevices = false; ///< The machine's disks are offered, too.
        BlockDevices::Paths blockPaths;
        DeviceUse::Calls deviceCalls = DeviceUse::Calls::ofSystem();
        QString stateDir;
        QString socketName;
        QString mountedDir; ///< Where the installed system is mounted, if it is.
        /// Everyone may connect; who is neither root nor in `freeGroup` needs the leave of an
        /// administrator. Otherwise only the service's own user may connect.
        bool asksAdministrator = false;
        QString freeGroup; ///< Empty: none.
        RecoveryService::FreeBytes freeBytes = freeBytesAt;
    };

    explicit Daemon(const Options &options);

    /// Opens the images and the state folder and listens. Without all of it there is no service.
    [[nodiscard]] bool start(QString *error);

private:
    void admitByAdministrator();

    Options m_options;
    Polkit m_polkit;
    DeviceCatalog m_catalog;
    DeviceUse m_use;
    SessionStore m_store;
    ServiceHost m_host;
    DeviceService m_devices;
    ScanService m_scans;
    RecoveryService m_recoveries;
    SessionService m_sessions;
    ForensicsService m_forensics;
    VaultService m_vaults;
};

} // namespace recoveryd
} // namespace services
