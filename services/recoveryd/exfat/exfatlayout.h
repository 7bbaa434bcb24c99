#pragma once

#include "recoveryd/fat/allocationtable.h"

namespace services::recoveryd::exfat {

/// Where the parts of an exFAT volume are. Bytes from its start.
///
/// On-disk format after Microsoft's published description of exFAT, revision 1.00.
struct ExfatLayout
{
    fat::ClusterGrid grid;
    fat::TableLayout table;
    quint32 rootCluster = 0;
    qint64 size = 0;
    qint64 sectorSize = 0;
};

/// Where the backup of the boot sector is, in sectors.
constexpr qint64 kBackupSector = 12;

/// False if the sector is no boot sector of exFAT.
[[nodiscard]] bool parseExfatBoot(const QByteArray &sector, ExfatLayout *layout);
/// Whether the volume that begins at byte `start` has a table where the layout says.
bool hasTable(const MediaReader &media, qint64 start, const ExfatLayout &layout);
/// The layout by the boot sector or its backup.
[[nodiscard]] bool findExfatLayout(const MediaReader &media, ExfatLayout *layout);
/// The clusters in use, by the bitmap that the root directory names. False if there is none.
[[nodiscard]] bool readBitmap(const MediaReader &media, const ExfatLayout &layout,
                              const fat::AllocationTable &table, fat::ClusterSet *used);

} // namespace services::recoveryd::exfat
