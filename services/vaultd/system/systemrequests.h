#pragma once

#include "common/servicehost.h"
#include "vaultd/system/firewall.h"
#include "vaultd/system/packageinstaller.h"

namespace services::vaultd {

/// Requests to change the system: installPackage and syncShareFirewall.
class SystemRequests
{
public:
    /// The reference must outlive the host's handlers.
    SystemRequests(ServiceHost &host, const QString &stateDir);

    /// Once the state folder is there.
    void start() { m_firewall.start(); }

private:
    using Respond = ServiceHost::Respond;

    void installPackage(const Request &request, const Respond &respond);
    void syncShareFirewall(const Request &request, const Respond &respond);

    ServiceHost &m_host;
    Firewall m_firewall;
    PackageInstaller m_installer;
};

/// Where it is written what is open in the firewall.
QString firewallStateFile(const QString &stateDir);

} // namespace services::vaultd
