#include "recoveryd/devices/fatgeometry.h"

#include "recoveryd/devices/bytes.h"

namespace services::recoveryd {

bool parseFatGeometry(const QByteArray &bootSector, FatGeometry *geometry)
{
    constexpr quint32 kMaxSmall12 = 4085;
    constexpr quint32 kMaxSmall16 = 65525;
    const Fields boot(bootSector);
    FatGeometry fat;
    fat.sectorSize = boot.le16(11);
    fat.sectorsPerCluster = boot.u8(13);
    fat.reserved = boot.le16(14);
    fat.tables = boot.u8(16);
    fat.rootEntries = boot.le16(17);
    const quint8 media = boot.u8(21);
    const bool isWide = boot.le16(22) == 0;
    fat.tableSize = isWide ? boot.le32(36) : boot.le16(22);
    fat.sectors = boot.le16(19) ? boot.le16(19) : boot.le32(32);
    if (boot.le16(510) != 0xAA55 || !isPowerOfTwo(fat.sectorSize) || fat.sectorSize < 512 ||
        fat.sectorSize > 4096 || !isPowerOfTwo(fat.sectorsPerCluster) || fat.reserved == 0 ||
        fat.tables < 1 || fat.tables > 2 || (media != 0xF0 && media < 0xF8) || fat.tableSize == 0)
        return false;
    if (fat.sectors <= fat.dataSector())
        return false;
    const quint64 clusters = (fat.sectors - fat.dataSector()) / fat.sectorsPerCluster;
    if (clusters == 0 || clusters > 0x0FFFFFF5)
        return false;
    fat.clusters = quint32(clusters);
    // The number of clusters decides the width of an entry; only FAT32 has the wide field.
    fat.bits = isWide ? 32 : fat.clusters < kMaxSmall12 ? 12 : fat.clusters < kMaxSmall16 ? 16 : 32;
    if (isWide)
        fat.rootCluster = boot.le32(44);
    *geometry = fat;
    return true;
}

} // namespace services::recoveryd
