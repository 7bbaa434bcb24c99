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

    // Only in the configuration file; clients need not know of them.
    enum class SecondNet {
        Auto,   ///< Where the file system has clones.
        Always, ///< Also with hard links, which programs can see by the count of links.
        Never,
    };
    SecondNet secondNet = SecondNet::Auto; ///< Also keep what is deleted past the hook.
    QStringList excludedDirs;              ///< Absolute; what is deleted below is not kept.
    QStringList excludedNames = {QStringLiteral(".git")}; ///< The same for folders by name.
    qint64 copyLimitBytes = 64LL * 1024 * 1024; ///< Larger files are kept without a copy or not.

    /// For a vault that has none yet: documents below the folder that the vault stands in.
    static VaultConfig defaultsFor(const QString &vaultParent);
    /// As clients see it.
    QJsonObject toJson() const;
    /// As it is kept: with what clients do not see.
    QJsonObject toFile() const;
};

/// The five keys of the protocol must be there, the others stay in *config as they are unless they
/// are given. Each is checked; *error names the first key that does not fit and why, in Chinese.
[[nodiscard]] bool parseConfig(const QJsonObject &object, VaultConfig *config, QString *error);

} // namespace vaultd
} // namespace services
