#pragma once

#include "vaultd/vaultconfig.h"

namespace services::vaultd {

/// The configuration and the switch of one user, kept in a folder of the service.
class UserSettings
{
public:
    UserSettings(const QString &vaultParent, const QString &stateDir);

    /// Reads what is kept. What cannot be read gives the defaults and a line in the log.
    void load();
    /// Each is kept first; on failure nothing has changed.
    [[nodiscard]] bool setConfig(const VaultConfig &config, QString *error);
    [[nodiscard]] bool setEnabled(bool isEnabled, QString *error);

    const VaultConfig &config() const { return m_config; }
    bool isEnabled() const { return m_isEnabled; }

private:
    QString m_configPath;
    QString m_switchPath;
    VaultConfig m_config;
    bool m_isEnabled = false;
};

} // namespace services::vaultd
