#pragma once

#include "recoveryd/devices/fatgeometry.h"
#include "recoveryd/fat/allocationtable.h"

namespace services::recoveryd::fat {

/// Where the parts of a FAT volume are. Bytes from its start.
///
/// On-disk format after Microsoft's published description of FAT32, 1.03, and ECMA-107.
struct FatLayout
{
    ClusterGrid grid;
    TableLayout table;
    Range fixedRoot;         ///< FAT12 and FAT16.
    quint32 rootCluster = 0; ///< FAT32.
    qint64 size = 0;
    bool isDerived = false; ///< Not from a boot sector.

    bool hasFixedRoot() const { return fixedRoot.length > 0; }
};

FatLayout layoutOf(const FatGeometry &geometry);

/// Whether the volume that begins at byte `start` has a table where the geometry says.
bool hasTable(const MediaReader &media, qint64 start, const FatGeometry &geometry);

/// The layout by the boot sector, its backup, or what the tables and directories tell.
[[nodiscard]] bool findFatLayout(const MediaReader &media, FatLayout *layout);

/// The layout of a volume without boot sectors, whose first table begins at byte `tableOffset`.
[[nodiscard]] bool deriveLayout(const MediaReader &media, qint64 tableOffset, FatLayout *layout);

/// Whether a table may begin with these bytes; gives the width of its entries.
[[nodiscard]] bool isTableStart(const QByteArray &bytes, int *bits);

/// Where FAT32 keeps the backup of its boot sector, in sectors.
constexpr qint64 kBackupSector = 6;
/// Number of reserved sectors that the usual tools leave before the tables.
constexpr qint64 kUsualReserved = 32;

} // namespace services::recoveryd::fat
