#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QVector>

namespace vault {

/// A vault, where it was found, and what it holds.
struct VaultLocation
{
    QString vaultParentDir; ///< The directory that the vault's own lies in; tells vaults apart.
    QString devicePath;     ///< As "/dev/sda2".
    QString partMountPoint; ///< Empty if the device is not mounted.
    QString userName;       ///< Whose home it is in; empty outside of homes.
    QJsonArray files;       ///< Records, as recordFrom() makes them.

    /// As elements of the answer to recovery.listVaultLocations.
    QJsonObject toJson() const;
    static VaultLocation fromJson(const QJsonObject &object);
};

struct MountedPartition
{
    QString devicePath;
    QString mountPoint; ///< Clean.
};

/// Undoes the kernel's escapes for blanks, tabs, line feeds and backslashes.
QString decodeMountPath(const QString &field);

/// The partitions in the text of /proc/mounts, each mount point once, in the order of the text.
/// What has no device or lives in memory is left out; of several mounts at one place the last is
/// the one that shows.
QVector<MountedPartition> parseMounts(const QByteArray &text);

/// The vaults at the top of a partition, in root's home and in those below /home, without their
/// files. Links that lead out of the partition's directory are not followed. Blocks on the disk.
QVector<VaultLocation> vaultsOn(const MountedPartition &partition);

/// The vaults of all partitions that the file tells, each once even where several mounts show it.
/// A network drive whose server is gone may hold up the caller: not for the GUI thread.
QVector<VaultLocation>
findVaultLocations(const QString &mountsFile = QStringLiteral("/proc/mounts"));

} // namespace vault
