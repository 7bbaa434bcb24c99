#include "core/controllers/upgrade/packageinstall.h"

#include <QDebug>

namespace core {
namespace controllers {
namespace upgrade {

namespace {

const char *const kLaunchVariables[] = {"DISPLAY",
                                        "WAYLAND_DISPLAY",
                                        "XAUTHORITY",
                                        "XDG_RUNTIME_DIR",
                                        "DBUS_SESSION_BUS_ADDRESS",
                                        "QT_QPA_PLATFORM",
                                        "QT_QPA_PLATFORMTHEME",
                                        "QT_STYLE_OVERRIDE",
                                        "XDG_CURRENT_DESKTOP",
                                        "DESKTOP_SESSION",
                                        "GTK_THEME",
                                        "LANG",
                                        "LC_ALL"};

bool canBeInFileName(const QString &text)
{
    return !text.isEmpty() && !text.contains(QLatin1Char('/')) && !text.contains(QChar());
}

} // namespace

QString packageFileName(const QString &version, const QString &arch)
{
    if (!canBeInFileName(version) || !canBeInFileName(arch))
        return QString();
    return QStringLiteral("morvane_%1_%2.deb").arg(version, arch);
}

QJsonObject installParams(const QString &packagePath, const QString &arch)
{
    QJsonObject environment;
    for (const char *name : kLaunchVariables) {
        if (qEnvironmentVariableIsSet(name))
            environment.insert(QLatin1String(name), qEnvironmentVariable(name));
    }
    return {{QStringLiteral("packagePath"), packagePath},
            {QStringLiteral("arch"), arch},
            {QStringLiteral("launchEnv"), environment}};
}

void logInstallRequest(const QJsonObject &params)
{
    const QJsonObject environment = params.value(QLatin1String("launchEnv")).toObject();
    const auto isSet = [&environment](const char *name) {
        return environment.contains(QLatin1String(name)) ? QStringLiteral("true")
                                                         : QStringLiteral("false");
    };
    qInfo().noquote() << QStringLiteral(
                             "Upgrade install request: packagePath=%1 arch=%2 display=%3 "
                             "wayland=%4 xauthority=%5 xdgRuntimeDir=%6 "
                             "dbusSessionBus=%7")
                             .arg(params.value(QLatin1String("packagePath")).toString(),
                                  params.value(QLatin1String("arch")).toString(), isSet("DISPLAY"),
                                  isSet("WAYLAND_DISPLAY"), isSet("XAUTHORITY"),
                                  isSet("XDG_RUNTIME_DIR"), isSet("DBUS_SESSION_BUS_ADDRESS"));
}

} // namespace upgrade
} // namespace controllers
} // namespace core
