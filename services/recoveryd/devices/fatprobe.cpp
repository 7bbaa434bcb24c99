#include "recoveryd/devices/fatprobe.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/fatgeometry.h"

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kMaxTable = 16 * 1024 * 1024;
constexpr quint32 kUnknown = 0xFFFFFFFF;

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

quint32 countFree(const Volume &volume, const FatGeometry &fat)
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
quint32 notedFree(const Volume &volume, const FatGeometry &fat, const Fields &boot)
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
    FatGeometry fat;
    if (!parseFatGeometry(bytes, &fat))
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
