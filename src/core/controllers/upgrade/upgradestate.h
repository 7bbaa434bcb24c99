#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>

namespace core {
namespace controllers {
namespace upgrade {

/// A package that was fetched and whose hash matched.
struct DownloadedPackageState
{
    QString version;
    QString arch;
    QString path;
    QString md5; ///< Lower-case hexadecimal.

    bool isEmpty() const;
    QJsonObject toJson() const;
    static DownloadedPackageState fromJson(const QJsonObject &object);
};

/// What the program remembers of the update server's last answer. Times are UTC.
struct UpgradeState
{
    static constexpr int kFormatVersion = 1;

    int version = kFormatVersion; ///< Of the file's format.
    QDateTime lastCheckAt;        ///< Invalid: never.
    bool lastCheckSuccess = false;
    QString currentVersion;
    QString latestVersion;
    QString arch;
    bool updateAvailable = false;
    bool forceUpdate = false;
    QString packageUrl;
    QString packageMd5;
    qint64 packageSize = 0; ///< Bytes.
    QString downloadPageUrl;
    QString releaseNotes;
    QDateTime publishedAt;
    QString pendingMandatoryVersion;
    QString lastForcedUpdateFailure;
    DownloadedPackageState downloadedPackage;

    QJsonObject toJson() const;
    /// Wrong types read as defaults.
    static UpgradeState fromJson(const QJsonObject &object);
};

/// ISO 8601 text, with or without milliseconds, as UTC; invalid for anything else.
QDateTime utcFromText(const QString &text);

} // namespace upgrade
} // namespace controllers
} // namespace core
