#include "vaultd/keep/mountvault.h"

#include "core/mounttable.h"

namespace services::vaultd {

namespace {

/// A disk of this machine that can be written to, as opposed to a network share, which may hang, or
/// what exists in memory only.
bool isDisk(const core::Mount &mount)
{
    return mount.source.startsWith('/') && !mount.isReadOnly() && !mount.type.startsWith("fuse.") &&
           mount.type != "squashfs" && mount.type != "iso9660" && mount.type != "overlay";
}

} // namespace

QByteArray mountFor(const QByteArray &path, dev_t device)
{
    const QVector<core::Mount> mounts = core::readMountTable();
    const core::Mount *const mount = core::mountOf(mounts, path);
    struct stat top;
    if (!mount || !isDisk(*mount) || ::lstat(mount->mountPoint.constData(), &top) != 0 ||
        top.st_dev != device)
        return QByteArray();
    return mount->mountPoint;
}

QList<QByteArray> mountsWithVaults()
{
    QList<QByteArray> found;
    const QVector<core::Mount> mounts = core::readMountTable();
    for (const core::Mount &mount : mounts) {
        const QByteArray vault =
            (mount.mountPoint == "/" ? QByteArray() : mount.mountPoint) + '/' + vault::kVaultDir;
        struct stat info;
        // The mount point may be hidden by a later mount; the device tells.
        if (isDisk(mount) && !found.contains(mount.mountPoint) &&
            ::lstat(vault.constData(), &info) == 0 && S_ISDIR(info.st_mode))
            found.append(mount.mountPoint);
    }
    return found;
}

} // namespace services::vaultd
