#include "vaultd/system/systemrequests.h"

#include "common/params.h"

#include <QDir>

namespace services::vaultd {

namespace {

const QString kSuccess = QStringLiteral("success");
const QString kMessage = QStringLiteral("message");
const QString kProgress = QStringLiteral("progress");

} // namespace

QString firewallStateFile(const QString &stateDir)
{
    return stateDir + QStringLiteral("/firewall.json");
}

SystemRequests::SystemRequests(ServiceHost &host, const QString &stateDir)
    : m_host(host)
    , m_firewall(firewallStateFile(stateDir))
    , m_installer(stateDir + QStringLiteral("/install"))
{
    host.handle(QStringLiteral("vault.installPackage"),
                ServiceHost::RequestHandler([this](const Request &request, const Respond &respond) {
                    installPackage(request, respond);
                }));
    host.handle(QStringLiteral("vault.syncShareFirewall"),
                ServiceHost::RequestHandler([this](const Request &request, const Respond &respond) {
                    syncShareFirewall(request, respond);
                }));
}

void SystemRequests::installPackage(const Request &request, const Respond &respond)
{
    const QString path = textParam(request.params, QStringLiteral("packagePath"));
    const QJsonValue environment = request.params.value(QLatin1String("launchEnv"));
    bool isEnvironment = environment.isObject();
    const QJsonObject variables = environment.toObject();
    for (const QJsonValue &value : variables)
        isEnvironment = isEnvironment && value.isString();
    if (!QDir::isAbsolutePath(path) || path.contains(QChar(QChar::Null))) {
        respond(Reply::failure(kBadParamsCode, QStringLiteral("更新包不存在")));
        return;
    }
    if (textParam(request.params, QStringLiteral("arch")).isEmpty()) {
        respond(badParam(QStringLiteral("arch")));
        return;
    }
    if (!isEnvironment) {
        respond(badParam(QStringLiteral("launchEnv")));
        return;
    }
    const uid_t uid = request.peer.uid;
    const auto progress = [this, uid](int percent, const QString &message) {
        m_host.broadcast(QStringLiteral("vault.installProgress"),
                         {{kProgress, percent}, {kMessage, message}},
                         [uid](const Peer &peer) { return peer.uid == uid; });
    };
    m_installer.install(
        path, request.peer, progress, [respond](const PackageInstaller::Result &result) {
            respond(result.isInstalled ? Reply::ok({{kSuccess, true},
                                                    {kMessage, result.message},
                                                    {kProgress, 100},
                                                    {QStringLiteral("sha256"), result.sha256}})
                                       : Reply::failure(kIoCode, result.message));
        });
}

void SystemRequests::syncShareFirewall(const Request &request, const Respond &respond)
{
    const QJsonValue active = request.params.value(QLatin1String("active"));
    const int port = countParam(request.params, QStringLiteral("port"), -1);
    if (!active.isBool()) {
        respond(badParam(QStringLiteral("active")));
        return;
    }
    if (port < 1 || port > 65535) {
        respond(badParam(QStringLiteral("port")));
        return;
    }
    m_firewall.sync(request.peer.uid, active.toBool(), port,
                    [respond](bool isDone, const QString &message) {
                        respond(Reply::ok({{kSuccess, isDone}, {kMessage, message}}));
                    });
}

} // namespace services::vaultd
