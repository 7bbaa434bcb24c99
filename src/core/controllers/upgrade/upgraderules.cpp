#include "core/controllers/upgrade/upgraderules.h"

#include "core/jsonnumber.h"

#include <QDebug>
#include <QFileInfo>
#include <QStringList>

namespace core {
namespace controllers {
namespace upgrade {

namespace {

constexpr qint64 kSecondsBetweenChecks = 86400;

QString word(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString trimmedText(const QJsonObject &payload, const char *key)
{
    return payload.value(QLatin1String(key)).toString().trimmed();
}

qint64 sizeFrom(const QJsonValue &value)
{
    return value.isDouble() ? toInt64(value) : value.toString().trimmed().toLongLong();
}

void takeAnswer(UpgradeState *state, const QJsonObject &payload)
{
    state->latestVersion = trimmedText(payload, "latestVersion");
    state->updateAvailable = payload.value(QLatin1String("updateAvailable")).toBool();
    state->forceUpdate = payload.value(QLatin1String("forceUpdate")).toBool();
    state->packageUrl = trimmedText(payload, "packageUrl");
    state->packageMd5 = trimmedText(payload, "packageMd5").toLower();
    state->packageSize = sizeFrom(payload.value(QLatin1String("packageSize")));
    state->downloadPageUrl = trimmedText(payload, "downloadPageUrl");
    state->releaseNotes = trimmedText(payload, "releaseNotes");
    state->publishedAt = utcFromText(payload.value(QLatin1String("publishedAt")).toString());
    const QString arch = normalizeArchitecture(payload.value(QLatin1String("arch")).toString());
    if (!arch.isEmpty())
        state->arch = arch;
}

void dropUpdate(UpgradeState *state)
{
    state->forceUpdate = false;
    state->packageUrl.clear();
    state->packageMd5.clear();
    state->packageSize = 0;
    state->pendingMandatoryVersion.clear();
    state->lastForcedUpdateFailure.clear();
    if (state->latestVersion.isEmpty())
        state->latestVersion = state->currentVersion;
}

} // namespace

QString normalizeArchitecture(const QString &text)
{
    const QString name = text.trimmed().toLower();
    if (name == QLatin1String("x86_64"))
        return QStringLiteral("amd64");
    if (name == QLatin1String("aarch64"))
        return QStringLiteral("arm64");
    return name;
}

VersionOrder compareVersions(const QString &current, const QString &latest)
{
    const QString mine = current.trimmed();
    const QString theirs = latest.trimmed();
    if (mine == theirs)
        return VersionOrder::same;
    if (mine.isEmpty() || theirs.isEmpty())
        return VersionOrder::unknown;
    const QStringList myParts = mine.split(QLatin1Char('.'));
    const QStringList theirParts = theirs.split(QLatin1Char('.'));
    const auto partAt = [](const QStringList &parts, int index, bool *ok) {
        return index < parts.size() ? parts.at(index).trimmed().toInt(ok) : (*ok = true, 0);
    };
    for (int i = 0; i < qMax(myParts.size(), theirParts.size()); ++i) {
        bool mineOk = false;
        bool theirsOk = false;
        const int my = partAt(myParts, i, &mineOk);
        const int their = partAt(theirParts, i, &theirsOk);
        if (!mineOk || !theirsOk)
            return VersionOrder::unknown;
        if (my != their)
            return my < their ? VersionOrder::newer : VersionOrder::older;
    }
    return VersionOrder::same;
}

bool isCheckAnswer(const QJsonObject &payload)
{
    return !trimmedText(payload, "latestVersion").isEmpty() ||
           payload.value(QLatin1String("updateAvailable")).isBool();
}

void applyCheckResponse(UpgradeState *state, const QJsonObject &payload)
{
    takeAnswer(state, payload);
    const VersionOrder order = compareVersions(state->currentVersion, state->latestVersion);
    qInfo().noquote() << QStringLiteral("Upgrade applyCheckResponse: currentVersion=%1 "
                                        "latestVersion=%2 backendUpdateAvailable=%3 "
                                        "backendForceUpdate=%4 versionCompare=%5")
                             .arg(state->currentVersion, state->latestVersion,
                                  word(state->updateAvailable), word(state->forceUpdate),
                                  QString::number(static_cast<int>(order)));

    dropUpdateNotNewer(state);
    if (!state->updateAvailable)
        dropUpdate(state);
    else if (state->forceUpdate)
        state->pendingMandatoryVersion = state->latestVersion;
    qInfo().noquote() << QStringLiteral("Upgrade applyCheckResponse normalized: latestVersion=%1 "
                                        "updateAvailable=%2 forceUpdate=%3 "
                                        "pendingMandatoryVersion=%4")
                             .arg(state->latestVersion, word(state->updateAvailable),
                                  word(state->forceUpdate), state->pendingMandatoryVersion);
}

void dropUpdateNotNewer(UpgradeState *state)
{
    const VersionOrder order = compareVersions(state->currentVersion, state->latestVersion);
    if (order == VersionOrder::same || order == VersionOrder::older) {
        state->updateAvailable = false;
        dropUpdate(state);
    }
}

bool isCheckingTooSoon(const UpgradeState &state, const QDateTime &nowUtc)
{
    return state.lastCheckAt.isValid() && state.lastCheckAt.secsTo(nowUtc) < kSecondsBetweenChecks;
}

bool isMandatory(const UpgradeState &state)
{
    return state.updateAvailable && state.forceUpdate && !state.packageUrl.trimmed().isEmpty() &&
           !state.packageMd5.trimmed().isEmpty() && !state.latestVersion.trimmed().isEmpty();
}

QString usablePackagePath(const UpgradeState &state)
{
    const DownloadedPackageState &package = state.downloadedPackage;
    if (package.isEmpty() || package.version != state.latestVersion || package.arch != state.arch ||
        package.md5.trimmed().toLower() != state.packageMd5.trimmed().toLower())
        return QString();
    const QFileInfo file(package.path);
    return file.isFile() ? file.absoluteFilePath() : QString();
}

QString downloadRefusal(const UpgradeState &state, const QString &machineArch)
{
    if (state.packageUrl.trimmed().isEmpty())
        return QStringLiteral("服务端未返回有效的更新包地址。");
    if (state.packageMd5.trimmed().isEmpty())
        return QStringLiteral("服务端未返回更新包校验值。");
    if (state.latestVersion.trimmed().isEmpty())
        return QStringLiteral("服务端未返回目标版本号。");
    if (normalizeArchitecture(state.arch) != machineArch)
        return QStringLiteral("服务端返回的更新包架构与当前设备不匹配。");
    return QString();
}

} // namespace upgrade
} // namespace controllers
} // namespace core
