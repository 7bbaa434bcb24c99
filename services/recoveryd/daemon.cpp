#include "recoveryd/daemon.h"

#include "common/requestlog.h"

#include <grp.h>

namespace services {
namespace recoveryd {

Daemon::Daemon(const Options &options)
    : m_options(options)
    , m_use(BlockDevices(options.blockPaths), options.mountedDir, options.deviceCalls)
    , m_devices(m_host, m_catalog, m_use)
    , m_scans(m_host, m_catalog, m_use, m_store)
    , m_recoveries(m_host, m_catalog, m_use, m_store, options.freeBytes)
    , m_sessions(m_host, m_scans, m_store,
                 [this](const QString &id) { return m_recoveries.isInUse(id); })
    , m_forensics(m_host, m_catalog, options.stateDir)
    , m_vaults(m_host, m_catalog, options.mountedDir, options.freeBytes)
{
    if (options.withBlockDevices)
        m_catalog.offerBlockDevices(options.blockPaths);
    if (options.asksAdministrator)
        admitByAdministrator();
}

void Daemon::admitByAdministrator()
{
    gid_t freeGroup = gid_t(-1);
    if (const group *const entry = ::getgrnam(qUtf8Printable(m_options.freeGroup)))
        freeGroup = entry->gr_gid;
    m_host.setAccess(SocketAccess::Everyone);
    m_host.setAuthorizer([this, freeGroup](const Peer &peer, const ServiceHost::Decide &decide) {
        if (freeGroup != gid_t(-1) && peer.isInGroup(freeGroup))
            decide(true, QString());
        else
            m_polkit.check(QStringLiteral("org.example.morvane.recover"), peer, decide);
    });
}

bool Daemon::start(QString *error)
{
    for (const QString &image : qAsConst(m_options.images))
        if (!m_catalog.addImage(image, error))
            return false;
    // The socket first: a second service on the same name must not touch the first one's state.
    logRequestsToJournal(&m_host);
    if (!m_host.listen(m_options.socketName, error))
        return false;
    if (!m_store.open(m_options.stateDir, error))
        return false;
    m_recoveries.closeInterrupted();
    return true;
}

} // namespace recoveryd
} // namespace services
