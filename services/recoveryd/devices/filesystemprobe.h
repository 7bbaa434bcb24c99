#pragma once

#include "recoveryd/devices/image.h"

namespace services {
namespace recoveryd {

/// What the superblock or boot sector of a file system tells. Bytes; -1 where it tells nothing.
struct FileSystem
{
    QString type; ///< "ext4", "vfat" …; empty if none was recognised.
    QString label;
    QString uuid; ///< Or serial number, in hexadecimal; empty if it has none.
    qint64 size = -1;
    qint64 used = -1;
    qint64 blockSize = 512;
    /// A member of LVM or RAID, or an encrypted volume: what it holds is seen elsewhere.
    bool isContainer = false;

    bool isKnown() const { return !type.isEmpty(); }
    bool isEncrypted() const
    {
        return type == QLatin1String("crypto_luks") || type == QLatin1String("bitlocker");
    }
    bool isExt() const { return type.startsWith(QLatin1String("ext")); }
};

/// Looks for ext2/3/4, XFS, Btrfs, NTFS, exFAT, FAT12/16/32 and Linux swap, then for what libblkid
/// knows besides. A damaged superblock counts as none.
FileSystem probeFileSystem(const Volume &volume);

} // namespace recoveryd
} // namespace services
