#include "core/controllers/upgrade/upgradestate.h"

#include "core/jsonnumber.h"

#include <QJsonValue>

namespace core {
namespace controllers {
namespace upgrade {

namespace {

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

QJsonValue jsonOf(const QDateTime &time)
{
    return time.isValid() ? QJsonValue(time.toUTC().toString(Qt::ISODate)) : QJsonValue();
}

} // namespace

QDateTime utcFromText(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return QDateTime();
    QDateTime time = QDateTime::fromString(trimmed, Qt::ISODate);
    if (!time.isValid())
        time = QDateTime::fromString(trimmed, Qt::ISODateWithMs);
    return time.isValid() ? time.toUTC() : QDateTime();
}

bool DownloadedPackageState::isEmpty() const
{
    return version.trimmed().isEmpty() && arch.trimmed().isEmpty() && path.trimmed().isEmpty() &&
           md5.trimmed().isEmpty();
}

QJsonObject DownloadedPackageState::toJson() const
{
    return {{QStringLiteral("version"), version},
            {QStringLiteral("arch"), arch},
            {QStringLiteral("path"), path},
            {QStringLiteral("md5"), md5}};
}

DownloadedPackageState DownloadedPackageState::fromJson(const QJsonObject &object)
{
    return {text(object, "version"), text(object, "arch"), text(object, "path"),
            text(object, "md5")};
}

QJsonObject UpgradeState::toJson() const
{
    return {{QStringLiteral("version"), version},
            {QStringLiteral("lastCheckAt"), jsonOf(lastCheckAt)},
            {QStringLiteral("lastCheckSuccess"), lastCheckSuccess},
            {QStringLiteral("currentVersion"), currentVersion},
            {QStringLiteral("latestVersion"), latestVersion},
            {QStringLiteral("arch"), arch},
            {QStringLiteral("updateAvailable"), updateAvailable},
            {QStringLiteral("forceUpdate"), forceUpdate},
            {QStringLiteral("packageUrl"), packageUrl},
            {QStringLiteral("packageMd5"), packageMd5},
            {QStringLiteral("packageSize"), packageSize},
            {QStringLiteral("downloadPageUrl"), downloadPageUrl},
            {QStringLiteral("releaseNotes"), releaseNotes},
            {QStringLiteral("publishedAt"), jsonOf(publishedAt)},
            {QStringLiteral("pendingMandatoryVersion"), pendingMandatoryVersion},
            {QStringLiteral("lastForcedUpdateFailure"), lastForcedUpdateFailure},
            {QStringLiteral("downloadedPackage"), downloadedPackage.toJson()}};
}

UpgradeState UpgradeState::fromJson(const QJsonObject &object)
{
    UpgradeState state;
    state.version = object.value(QLatin1String("version")).toInt(kFormatVersion);
    state.lastCheckAt = utcFromText(text(object, "lastCheckAt"));
    state.lastCheckSuccess = object.value(QLatin1String("lastCheckSuccess")).toBool();
    state.currentVersion = text(object, "currentVersion");
    state.latestVersion = text(object, "latestVersion");
    state.arch = text(object, "arch");
    state.updateAvailable = object.value(QLatin1String("updateAvailable")).toBool();
    state.forceUpdate = object.value(QLatin1String("forceUpdate")).toBool();
    state.packageUrl = text(object, "packageUrl");
    state.packageMd5 = text(object, "packageMd5");
    state.packageSize = toInt64(object.value(QLatin1String("packageSize")));
    state.downloadPageUrl = text(object, "downloadPageUrl");
    state.releaseNotes = text(object, "releaseNotes");
    state.publishedAt = utcFromText(text(object, "publishedAt"));
    state.pendingMandatoryVersion = text(object, "pendingMandatoryVersion");
    state.lastForcedUpdateFailure = text(object, "lastForcedUpdateFailure");
    state.downloadedPackage = DownloadedPackageState::fromJson(
        object.value(QLatin1String("downloadedPackage")).toObject());
    return state;
}

} // namespace upgrade
} // namespace controllers
} // namespace core
