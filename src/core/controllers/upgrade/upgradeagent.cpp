#include "core/controllers/upgrade/upgradeagent.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>
#include <QProcess>
#include <QUuid>

namespace core {
namespace controllers {
namespace upgrade {

namespace {

QString word(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

QStringList upgradeAgentCandidates()
{
    return {QCoreApplication::applicationDirPath() + QStringLiteral("/MorvaneUpgrade"),
            QStringLiteral("/opt/apps/com.velmarco.morvane/bin/MorvaneUpgrade")};
}

QString upgradeAgentBinaryPath(const QStringList &candidates)
{
    for (const QString &path : candidates) {
        if (QFileInfo(path).isFile())
            return path;
    }
    return QString();
}

bool launchUpgradeAgent(const QStringList &candidates, bool forced, bool interactive,
                        QString *session, QString *error)
{
    const QString binary = upgradeAgentBinaryPath(candidates);
    if (binary.isEmpty()) {
        *error = QStringLiteral("MorvaneUpgrade binary not found");
        return false;
    }
    *session = QUuid::createUuid().toString(QUuid::WithoutBraces);
    QStringList arguments{QStringLiteral("--session"), *session};
    if (forced)
        arguments.append(QStringLiteral("--forced"));
    if (interactive)
        arguments.append(QStringLiteral("--interactive"));
    if (!QProcess::startDetached(binary, arguments)) {
        *error = QStringLiteral("Failed to start MorvaneUpgrade");
        return false;
    }
    qInfo().noquote() << QStringLiteral("Upgrade agent launched: session=%1 forced=%2 "
                                        "interactive=%3 binary=%4")
                             .arg(*session, word(forced), word(interactive), binary);
    return true;
}

} // namespace upgrade
} // namespace controllers
} // namespace core
