#include "vaultd/settingsrequests.h"

#include "common/errorcodes.h"
#include "common/jsonfile.h"

#include <QDebug>
#include <QFile>

namespace services {
namespace vaultd {

namespace {
const QString kEnabled = QStringLiteral("enabled");
} // namespace

SettingsRequests::SettingsRequests(ServiceHost &host, const QString &vaultParent,
                                   const QString &stateDir, std::function<QString(bool)> deployMode,
                                   std::function<void()> onConfig)
    : m_configPath(stateDir + QStringLiteral("/config.json"))
    , m_switchPath(stateDir + QStringLiteral("/protection.json"))
    , m_deployMode(std::move(deployMode))
    , m_onConfig(std::move(onConfig))
    , m_config(VaultConfig::defaultsFor(vaultParent))
{
    host.handle(QStringLiteral("vault.getConfig"),
                [this](const QJsonObject &) { return Reply::ok(m_config.toJson()); });
    host.handle(QStringLiteral("vault.setConfig"),
                [this](const QJsonObject &params) { return setConfig(params); });
    for (const char *method : {"vault.enable", "vault.enableGlobal"})
        host.handle(QLatin1String(method),
                    [this](const QJsonObject &) { return setEnabled(true); });
    host.handle(QStringLiteral("vault.disable"),
                [this](const QJsonObject &) { return setEnabled(false); });
}

void SettingsRequests::load()
{
    QJsonObject object;
    QString error;
    if (QFile::exists(m_configPath) &&
        (!readJson(m_configPath, &object, &error) || !parseConfig(object, &m_config, &error)))
        qWarning() << "[SettingsRequests] configuration not used:" << error;
    if (QFile::exists(m_switchPath) && !readJson(m_switchPath, &object, &error))
        qWarning() << "[SettingsRequests] switch not used:" << error;
    else
        m_isEnabled = object.value(kEnabled).toBool();
}

Reply SettingsRequests::setConfig(const QJsonObject &params)
{
    VaultConfig config;
    QString error;
    if (!parseConfig(params, &config, &error))
        return Reply::failure(kBadParamsCode, error);
    if (!writeJson(m_configPath, config.toJson(), &error))
        return Reply::failure(kIoCode, error);
    m_config = config;
    m_onConfig();
    return Reply::ok(m_config.toJson());
}

Reply SettingsRequests::setEnabled(bool isEnabled)
{
    QString error;
    if (!writeJson(m_switchPath, {{kEnabled, isEnabled}}, &error))
        return Reply::failure(kIoCode, error);
    m_isEnabled = isEnabled;
    return Reply::ok({{QStringLiteral("success"), true},
                      {QStringLiteral("deployMode"), m_deployMode(isEnabled)},
                      {QStringLiteral("needReboot"), false}});
}

} // namespace vaultd
} // namespace services
