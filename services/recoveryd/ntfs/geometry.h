#pragma once

#include "recoveryd/devices/mediareader.h"

#include <QVector>

namespace services::recoveryd::ntfs {

/// What a boot sector says about its volume. Bytes.
///
/// On-disk layout after "NTFS Documentation" of the Linux-NTFS project and Microsoft's published
/// BPB fields.
struct Geometry
{
    qint64 sectorSize = 512;
    qint64 clusterSize = 4096;
    qint64 recordSize = 1024;
    qint64 indexBlockSize = 4096;
    qint64 size = 0;         ///< Of the volume without the backup boot sector behind it.
    qint64 mftOffset = 0;    ///< Of the first record of $MFT.
    qint64 mirrorOffset = 0; ///< Of $MFTMirr.

    qint64 clusters() const { return clusterSize > 0 ? size / clusterSize : 0; }
};

/// Reads the first 512 bytes of a boot sector or its backup. False if it is none or contradicts
/// itself.
[[nodiscard]] bool parseBootSector(const QByteArray &bytes, Geometry *geometry);

/// Whether $MFT or $MFTMirr stands where `geometry` says, for a volume that begins at `start`.
bool hasTable(const MediaReader &media, qint64 start, const Geometry &geometry);

/// Derives the geometry from a record 0 of $MFT at `offset` of the medium and the records behind
/// it. Gives the start of the volume relative to the medium, too. For volumes without a boot
/// sector.
[[nodiscard]] bool deriveGeometry(const MediaReader &media, qint64 offset, Geometry *geometry,
                                  qint64 *volumeStart);

/// The volume's geometry from its boot sector, from the backup at the end, or from an $MFT at one
/// of the usual places; the first one whose $MFT or $MFTMirr is readable.
[[nodiscard]] bool findGeometry(const MediaReader &media, Geometry *geometry);

} // namespace services::recoveryd::ntfs
