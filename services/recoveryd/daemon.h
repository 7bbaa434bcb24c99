#pragma once

#include "common/servicehost.h"
#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/forensics/forensicsservice.h"
#include "common/outputfile.h"
#include "recoveryd/recover/recoveryservice.h"
#include "recoveryd/scan/scanservice.h"
#include "recoveryd/session/sessionservice.h"
#include "recoveryd/session/sessionstore.h"

namespace services {
namespace recoveryd {

/// The whole service: the images, what is kept in the state folder, and the methods on a socket.
class Daemon
{
public:
    struct Options
    {
        QStringList images;
        QString stateDir;
        QString socketName;
        RecoveryService::FreeBytes freeBytes = freeBytesAt;
    };

    explicit Daemon(const Options &options);

    /// Opens the images and the state folder and listens. Without all of it there is no service.
    [[nodiscard]] bool start(QString *error);

private:
    Options m_options;
    DeviceCatalog m_catalog;
    SessionStore m_store;
    ServiceHost m_host;
    ScanService m_scans;
    RecoveryService m_recoveries;
    SessionService m_sessions;
    ForensicsService m_forensics;
};

} // namespace recoveryd
} // namespace services
