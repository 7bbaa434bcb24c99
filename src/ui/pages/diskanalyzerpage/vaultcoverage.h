#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace diskanalyzer {

/// Which deleted files the vault takes over. By default none.
struct VaultCoverage
{
    /// Protection is switched on, and in force for all programs without a restart.
    bool isActive = false;
    QStringList dirs;
    QStringList extensions; ///< Without the dot, lower case; "tar.gz" is one.
    qint64 maxBytes = 0;    ///< What the vault may hold; 0 or less if not known.

    /// The file, of `size` bytes, is kept by the vault when it is deleted. False in doubt.
    bool covers(const QString &path, qint64 size) const;
};

/// From the vault service's status. A key that is missing counts as false.
bool isProtectionActive(const QJsonObject &status);
/// Takes directories, types and size over from the vault service's configuration.
void applyConfig(const QJsonObject &config, VaultCoverage *coverage);

} // namespace diskanalyzer
