#include "vaultd/systemrequests.h"

#include "common/jsonfile.h"
#include "common/params.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

namespace services {
namespace vaultd {

namespace {

/// The answer says under "success" whether the request was taken, and a failure says why.
Reply record(const QString &path, QJsonObject request, const QString &message)
{
    QString error;
    request.insert(QStringLiteral("requestedAt"), QDateTime::currentSecsSinceEpoch());
    if (!writeJson(path, request, &error))
        return Reply::failure(kIoCode, error);
    return Reply::ok({{QStringLiteral("success"), true}, {QStringLiteral("message"), message}});
}

} // namespace

SystemRequests::SystemRequests(ServiceHost &host, const QString &stateDir)
    : m_stateDir(stateDir)
{
    host.handle(QStringLiteral("vault.installPackage"),
                [this](const QJsonObject &params) { return installPackage(params); });
    host.handle(QStringLiteral("vault.syncShareFirewall"),
                [this](const QJsonObject &params) { return syncShareFirewall(params); });
}

Reply SystemRequests::installPackage(const QJsonObject &params) const
{
    const QString path = textParam(params, QStringLiteral("packagePath"));
    const QJsonValue environment = params.value(QLatin1String("launchEnv"));
    if (!QDir::isAbsolutePath(path) || !QFileInfo(path).isFile())
        return Reply::failure(kBadParamsCode, QStringLiteral("更新包不存在"));
    if (textParam(params, QStringLiteral("arch")).isEmpty())
        return badParam(QStringLiteral("arch"));
    if (!environment.isObject())
        return badParam(QStringLiteral("launchEnv"));
    const QJsonObject variables = environment.toObject();
    for (const QJsonValue &value : variables)
        if (!value.isString())
            return badParam(QStringLiteral("launchEnv"));
    return record(m_stateDir + QStringLiteral("/install.json"),
                  {{QStringLiteral("packagePath"), path},
                   {QStringLiteral("arch"), params.value(QLatin1String("arch"))},
                   {QStringLiteral("launchEnv"), variables}},
                  QStringLiteral("安装请求已登记"));
}

Reply SystemRequests::syncShareFirewall(const QJsonObject &params) const
{
    const QJsonValue active = params.value(QLatin1String("active"));
    const int port = countParam(params, QStringLiteral("port"), -1);
    if (!active.isBool())
        return badParam(QStringLiteral("active"));
    if (port < 1 || port > 65535)
        return badParam(QStringLiteral("port"));
    return record(m_stateDir + QStringLiteral("/firewall.json"),
                  {{QStringLiteral("active"), active}, {QStringLiteral("port"), port}},
                  QStringLiteral("共享端口 %1 的防火墙规则已登记").arg(port));
}

} // namespace vaultd
} // namespace services
