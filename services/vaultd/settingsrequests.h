#pragma once

#include "common/servicehost.h"
#include "vaultd/users/vaultusers.h"

namespace services {
namespace vaultd {

class Protection;

/// The requests about configuration, switch and state: getConfig, setConfig, enable, enableGlobal,
/// disable, getStatus, getDeployMode.
class SettingsRequests
{
public:
    /// The references must outlive the host's handlers.
    SettingsRequests(ServiceHost &host, VaultUsers &users, Protection &protection);

private:
    using Respond = ServiceHost::Respond;

    void setConfig(UserVault *vault, const QJsonObject &params, const Respond &respond);
    void setEnabled(UserVault *vault, bool isEnabled, const Respond &respond);

    Protection &m_protection;
};

} // namespace vaultd
} // namespace services
