#pragma once

#include <QJsonObject>
#include <QStringList>

namespace services {
namespace vaultd {

/// What is protected, and for how long.
struct VaultConfig
{
    QStringList protectedDirs;       ///< Absolute, cleaned, each once.
    QStringList protectedExtensions; ///< Lower case, without the dot in front, each once.
    int retentionDays = 30;
    qint64 maxSpaceBytes = 10LL * 1024 * 1024 * 1024;          ///< 0: without limit.
    qint64 emergencyThresholdBytes = 1LL * 1024 * 1024 * 1024; ///< 0: never.

    /// For a vault that has none yet: documents below the folder that the vault stands in.
    static VaultConfig defaultsFor(const QString &vaultParent);
    QJsonObject toJson() const;
};

/// All five keys, each checked; *error names the first key that does not fit and why, in Chinese.
[[nodiscard]] bool parseConfig(const QJsonObject &object, VaultConfig *config, QString *error);

} // namespace vaultd
} // namespace services
