#pragma once

#include "common/servicehost.h"
#include "vaultd/vaultconfig.h"

namespace services {
namespace vaultd {

/// The configuration and the switch, kept in the state folder, and the requests about them:
/// getConfig, setConfig, enable, enableGlobal, disable.
class SettingsRequests
{
public:
    /// `deployMode`: the word for what is deployed, by whether protection is on. `onConfig` runs
    /// after each change of the configuration.
    SettingsRequests(ServiceHost &host, const QString &vaultParent, const QString &stateDir,
                     std::function<QString(bool isEnabled)> deployMode,
                     std::function<void()> onConfig);

    /// Reads what is kept. What cannot be read gives the defaults and a line in the log.
    void load();

    const VaultConfig &config() const { return m_config; }
    bool isEnabled() const { return m_isEnabled; }

private:
    Reply setConfig(const QJsonObject &params);
    Reply setEnabled(bool isEnabled);

    QString m_configPath;
    QString m_switchPath;
    std::function<QString(bool)> m_deployMode;
    std::function<void()> m_onConfig;
    VaultConfig m_config;
    bool m_isEnabled = false;
};

} // namespace vaultd
} // namespace services
