#pragma once

#include <QByteArray>

namespace services::recoveryd {

/// What the boot sector of FAT12, FAT16 or FAT32 tells. Sizes in sectors where nothing else is
/// said.
struct FatGeometry
{
    quint32 sectorSize = 0; ///< Bytes.
    quint32 sectorsPerCluster = 0;
    quint32 reserved = 0; ///< Sectors before the first table.
    quint32 tables = 0;   ///< Copies of the table.
    quint32 tableSize = 0;
    quint32 rootEntries = 0; ///< Of FAT12 and FAT16, whose root directory is of a fixed size.
    quint32 rootCluster = 0; ///< Of FAT32.
    quint32 clusters = 0;
    quint64 sectors = 0;
    int bits = 0; ///< Of a table entry: 12, 16 or 32.

    quint32 rootSectors() const
    {
        return quint32((quint64(rootEntries) * 32 + sectorSize - 1) / sectorSize);
    }
    /// The first sector of cluster 2.
    quint64 dataSector() const { return reserved + quint64(tables) * tableSize + rootSectors(); }
};

/// False if the sector is no boot sector of FAT.
[[nodiscard]] bool parseFatGeometry(const QByteArray &bootSector, FatGeometry *geometry);

} // namespace services::recoveryd
