#include "vaultd/settingsrequests.h"

#include "vaultd/deploy/protection.h"
#include "vaultd/users/vaulthandler.h"

namespace services {
namespace vaultd {

namespace {

const QString kDeployMode = QStringLiteral("deployMode");
const QString kNeedReboot = QStringLiteral("needReboot");

QJsonObject statusObject(const UserVault &vault, const HookFacts &hook)
{
    const bool isEnabled = vault.settings().isEnabled();
    QJsonObject object{{QStringLiteral("running"), true},
                       {QStringLiteral("enabled"), isEnabled},
                       {QStringLiteral("preloadActive"), hook.isActive},
                       {QStringLiteral("soFileExists"), hook.isLibraryThere},
                       {kNeedReboot, hook.needsReboot},
                       {QStringLiteral("protectedFileCount"), vault.index().count()},
                       {QStringLiteral("usedSpaceBytes"), vault.index().usedBytes()},
                       {kDeployMode, hook.deployMode(isEnabled)}};
    const QString &reason = vault.thread().secondNetReason();
    if (isEnabled && !reason.isEmpty())
        object.insert(QStringLiteral("secondNetReason"), reason);
    return object;
}

} // namespace

SettingsRequests::SettingsRequests(ServiceHost &host, VaultUsers &users, Protection &protection)
    : m_protection(protection)
{
    using Ask = const Request &;
    const auto on = [&host, &users](const char *method, const VaultHandler &handler) {
        handleForVault(host, QLatin1String(method), users, handler);
    };
    on("vault.getConfig", [](UserVault *vault, Ask, const Respond &respond) {
        respond(Reply::ok(vault->settings().config().toJson()));
    });
    on("vault.setConfig", [this](UserVault *vault, Ask request, const Respond &respond) {
        setConfig(vault, request.params, respond);
    });
    for (const char *method : {"vault.enable", "vault.enableGlobal"})
        on(method, [this](UserVault *vault, Ask, const Respond &respond) {
            setEnabled(vault, true, respond);
        });
    on("vault.disable", [this](UserVault *vault, Ask, const Respond &respond) {
        setEnabled(vault, false, respond);
    });
    on("vault.getStatus", [this](UserVault *vault, Ask, const Respond &respond) {
        m_protection.facts(vault, [vault, respond](const HookFacts &hook) {
            respond(Reply::ok(statusObject(*vault, hook)));
        });
    });
    on("vault.getDeployMode", [this](UserVault *vault, Ask, const Respond &respond) {
        m_protection.facts(vault, [vault, respond](const HookFacts &hook) {
            respond(Reply::ok({{kDeployMode, hook.deployMode(vault->settings().isEnabled())}}));
        });
    });
}

void SettingsRequests::setConfig(UserVault *vault, const QJsonObject &params,
                                 const Respond &respond)
{
    VaultConfig config = vault->settings().config(); // What clients do not send stays.
    QString error;
    if (!parseConfig(params, &config, &error)) {
        respond(Reply::failure(kBadParamsCode, error));
    } else if (!vault->setConfig(config, &error)) {
        respond(Reply::failure(kIoCode, error));
    } else {
        m_protection.apply(vault);
        respond(Reply::ok(config.toJson()));
    }
}

void SettingsRequests::setEnabled(UserVault *vault, bool isEnabled, const Respond &respond)
{
    const auto done = [this, vault, isEnabled, respond](bool isDone, const QString &error) {
        if (!isDone) {
            respond(Reply::failure(kIoCode, error));
            return;
        }
        m_protection.facts(vault, [isEnabled, respond](const HookFacts &hook) {
            respond(Reply::ok({{QStringLiteral("success"), true},
                               {kDeployMode, hook.deployMode(isEnabled)},
                               {kNeedReboot, hook.needsReboot}}));
        });
    };
    if (isEnabled)
        m_protection.enable(vault, done);
    else
        m_protection.disable(vault, done);
}

} // namespace vaultd
} // namespace services
