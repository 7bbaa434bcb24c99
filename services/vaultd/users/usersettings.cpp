#include "vaultd/users/usersettings.h"

#include "common/jsonfile.h"

#include <QDebug>
#include <QFile>

namespace services::vaultd {

namespace {
const QString kEnabled = QStringLiteral("enabled");
} // namespace

UserSettings::UserSettings(const QString &vaultParent, const QString &stateDir)
    : m_configPath(stateDir + QStringLiteral("/config.json"))
    , m_switchPath(stateDir + QStringLiteral("/protection.json"))
    , m_config(VaultConfig::defaultsFor(vaultParent))
{}

void UserSettings::load()
{
    QJsonObject object;
    QString error;
    if (QFile::exists(m_configPath) &&
        (!readJson(m_configPath, &object, &error) || !parseConfig(object, &m_config, &error)))
        qWarning() << "[UserSettings] configuration not used:" << error;
    object = QJsonObject();
    if (QFile::exists(m_switchPath) && !readJson(m_switchPath, &object, &error))
        qWarning() << "[UserSettings] switch not used:" << error;
    else
        m_isEnabled = object.value(kEnabled).toBool();
}

bool UserSettings::setConfig(const VaultConfig &config, QString *error)
{
    if (!writeJson(m_configPath, config.toFile(), error))
        return false;
    m_config = config;
    return true;
}

bool UserSettings::setEnabled(bool isEnabled, QString *error)
{
    if (!writeJson(m_switchPath, {{kEnabled, isEnabled}}, error))
        return false;
    m_isEnabled = isEnabled;
    return true;
}

} // namespace services::vaultd
