#include "recoveryd/devices/fatprobe.h"

#include "recoveryd/devices/bytes.h"

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kMaxTable = 16 * 1024 * 1024;
constexpr quint32 kUnknown = 0xFFFFFFFF;

/// The geometry in the boot sector; sizes in sectors.
struct Geometry
{
    quint32 sectorSize = 0;
    quint32 sectorsPerCluster = 0;
    quint32 reserved = 0;
    quint32 tableSize = 0;
    quint32 clusters = 0;
    quint64 sectors = 0;
    int bits = 0; ///< 12, 16 or 32; 0 if this is no FAT.
};

Geometry geometryOf(const Fields &boot)
{
    Geometry fat;
    fat.sectorSize = boot.le16(11);
    fat.sectorsPerCluster = boot.u8(13);
    fat.reserved = boot.le16(14);
    const quint32 tables = boot.u8(16);
    const quint32 rootEntries = boot.le16(17);
    const quint8 media = boot.u8(21);
    fat.tableSize = boot.le16(22) ? boot.le16(22) : boot.le32(36);
    fat.sectors = boot.le16(19) ? boot.le16(19) : boot.le32(32);
    if (boot.le16(510) != 0xAA55 || !isPowerOfTwo(fat.sectorSize) || fat.sectorSize < 512 ||
        fat.sectorSize > 4096 || !isPowerOfTwo(fat.sectorsPerCluster) || fat.reserved == 0 ||
        tables < 1 || tables > 2 || (media != 0xF0 && media < 0xF8) || fat.tableSize == 0)
        return fat;
    const quint64 rootSectors = (quint64(rootEntries) * 32 + fat.sectorSize - 1) / fat.sectorSize;
    const quint64 system = fat.reserved + quint64(tables) * fat.tableSize + rootSectors;
    if (fat.sectors <= system)
        return fat;
    fat.clusters = quint32((fat.sectors - system) / fat.sectorsPerCluster);
    // The number of clusters alone decides the width of an entry.
    fat.bits = fat.clusters < 4085 ? 12 : fat.clusters < 65525 ? 16 : 32;
    return fat;
}

quint32 entryAt(const Fields &table, int bits, quint32 cluster)
{
    switch (bits) {
    case 12: {
        const quint16 pair = table.le16(int(cluster + cluster / 2));
        return (cluster & 1) ? pair >> 4 : pair & 0x0FFF;
    }
    case 16:
        return table.le16(int(cluster * 2));
    default:
        return table.le32(int(cluster * 4)) & 0x0FFFFFFF;
    }
}

quint32 countFree(const Volume &volume, const Geometry &fat)
{
    const qint64 length = qint64(fat.tableSize) * fat.sectorSize;
    const qint64 needed = (qint64(fat.clusters) + 2) * fat.bits / 8;
    if (length > kMaxTable || needed > length)
        return kUnknown;
    const QByteArray bytes = volume.read(qint64(fat.reserved) * fat.sectorSize, length);
    if (bytes.isEmpty())
        return kUnknown;
    const Fields table(bytes);
    quint32 free = 0;
    for (quint32 cluster = 2; cluster < fat.clusters + 2; ++cluster)
        free += entryAt(table, fat.bits, cluster) == 0 ? 1 : 0;
    return free;
}

/// FAT32 keeps a count of free clusters; it may be missing or absurd.
quint32 notedFree(const Volume &volume, const Geometry &fat, const Fields &boot)
{
    const quint32 sector = boot.le16(48);
    const Fields info(volume.read(qint64(sector) * fat.sectorSize, 512));
    const quint32 free = info.le32(488);
    const bool isValid = sector != 0 && sector < fat.reserved && info.isAt(0, "RRaA", 4) &&
                         info.isAt(484, "rrAa", 4) && free <= fat.clusters;
    return isValid ? free : kUnknown;
}

} // namespace

FileSystem probeFat(const Volume &volume)
{
    FileSystem found;
    const QByteArray bytes = volume.read(0, 512);
    const Fields boot(bytes);
    const Geometry fat = geometryOf(boot);
    if (fat.bits == 0)
        return found;
    found.type = QStringLiteral("fat%1").arg(fat.bits);
    found.label = QString::fromLatin1(bytes.mid(fat.bits == 32 ? 71 : 43, 11)).trimmed();
    if (found.label == QLatin1String("NO NAME"))
        found.label.clear();
    found.uuid = QString::fromLatin1(bytes.mid(fat.bits == 32 ? 67 : 39, 4).toHex());
    found.blockSize = qint64(fat.sectorSize) * fat.sectorsPerCluster;
    found.size = qint64(fat.sectors) * fat.sectorSize;
    quint32 free = fat.bits == 32 ? notedFree(volume, fat, boot) : kUnknown;
    if (free == kUnknown)
        free = countFree(volume, fat);
    if (free != kUnknown)
        found.used = qint64(fat.clusters - free) * found.blockSize;
    return found;
}

FileSystem probeExfat(const Volume &volume)
{
    FileSystem found;
    const QByteArray bytes = volume.read(0, 512);
    const Fields boot(bytes);
    const int sectorShift = boot.u8(108);
    const int clusterShift = boot.u8(109);
    if (!boot.isAt(3, "EXFAT   ", 8) || sectorShift < 9 || sectorShift > 12 ||
        clusterShift > 25 - sectorShift)
        return found;
    const quint64 sectors = boot.le64(72);
    if (sectors == 0 || sectors > (quint64(1) << 50))
        return found;
    found.type = QStringLiteral("exfat");
    found.uuid = QString::fromLatin1(bytes.mid(100, 4).toHex());
    found.blockSize = qint64(1) << (sectorShift + clusterShift);
    found.size = qint64(sectors << sectorShift);
    const quint8 percent = boot.u8(112);
    if (percent <= 100)
        found.used = found.size / 100 * percent;
    return found;
}

} // namespace recoveryd
} // namespace services
