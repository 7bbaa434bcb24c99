#include "recoveryd/exfat/exfatlayout.h"

#include "recoveryd/devices/bytes.h"

namespace services::recoveryd::exfat {

namespace {

constexpr int kSlot = 32;
constexpr quint8 kBitmap = 0x81;
constexpr qint64 kPiece = 1024 * 1024;
constexpr quint32 kRootLimit = 64; ///< Clusters of the root in which the bitmap is looked for.
constexpr quint64 kMaxSectors = quint64(1) << 50;

struct Bitmap
{
    quint32 first = 0;
    qint64 length = 0;
};

bool findBitmap(const MediaReader &media, const ExfatLayout &layout,
                const fat::AllocationTable &table, Bitmap *bitmap)
{
    bool isComplete = false;
    const fat::ClusterRuns runs = table.chain(layout.rootCluster, kRootLimit, &isComplete);
    for (const fat::ClusterRun &run : runs) {
        for (quint32 cluster = run.first; cluster < run.end(); ++cluster) {
            const qint64 offset = layout.grid.offsetOf(cluster);
            const QByteArray bytes = media.read(offset, qMin(kPiece, layout.grid.clusterSize));
            const Fields fields(bytes);
            for (int at = 0; at + kSlot <= bytes.size(); at += kSlot) {
                if (fields.u8(at) != kBitmap)
                    continue;
                bitmap->first = fields.le32(at + 20);
                bitmap->length = qint64(qMin(fields.le64(at + 24), quint64(layout.grid.count)));
                return layout.grid.contains(bitmap->first);
            }
        }
    }
    // The usual tools put it first.
    bitmap->first = fat::ClusterGrid::kFirst;
    bitmap->length = (qint64(layout.grid.count) + 7) / 8;
    return (media.read(layout.grid.heapOffset, 1).at(0) & 1) != 0;
}

} // namespace

bool parseExfatBoot(const QByteArray &sector, ExfatLayout *layout)
{
    const Fields boot(sector);
    const int sectorShift = boot.u8(108);
    const int clusterShift = boot.u8(109);
    const quint64 sectors = boot.le64(72);
    const quint32 tables = boot.u8(110);
    if (!boot.isAt(3, "EXFAT   ", 8) || boot.le16(510) != 0xAA55 || sectorShift < 9 ||
        sectorShift > 12 || clusterShift > 25 - sectorShift || sectors == 0 ||
        sectors > kMaxSectors || tables < 1 || tables > 2)
        return false;
    const quint64 tableOffset = boot.le32(80);
    const quint64 tableLength = boot.le32(84);
    const quint64 heap = boot.le32(88);
    const quint32 count = boot.le32(92);
    if (tableOffset < 24 || tableLength == 0 || tableOffset + tables * tableLength > heap ||
        count == 0 || count > 0xFFFFFFF5 || heap + (quint64(count) << clusterShift) > sectors ||
        (tableLength << sectorShift) / 4 < quint64(count))
        return false;
    layout->sectorSize = qint64(1) << sectorShift;
    layout->size = qint64(sectors << sectorShift);
    layout->grid.heapOffset = qint64(heap << sectorShift);
    layout->grid.clusterSize = qint64(1) << (sectorShift + clusterShift);
    layout->grid.count = count;
    layout->rootCluster = boot.le32(96);
    layout->table = fat::TableLayout();
    // With two tables a flag tells which one counts.
    const bool isSecond = tables == 2 && (boot.le16(106) & 1) != 0;
    layout->table.copies.append(
        qint64((tableOffset + (isSecond ? tableLength : 0)) << sectorShift));
    layout->table.length = qint64(tableLength << sectorShift);
    layout->table.isExfat = true;
    return true;
}

bool hasTable(const MediaReader &media, qint64 start, const ExfatLayout &layout)
{
    const Fields table(media.read(start + layout.table.copies.first(), 8));
    return (table.le32(0) & 0xFFFFFF00) == 0xFFFFFF00 && table.le32(4) == 0xFFFFFFFF;
}

bool findExfatLayout(const MediaReader &media, ExfatLayout *layout)
{
    for (qint64 offset : {qint64(0), kBackupSector * 512, kBackupSector * 1024,
                          kBackupSector * 2048, kBackupSector * 4096})
        if (parseExfatBoot(media.read(offset, 512), layout) &&
            (offset == 0 || offset == kBackupSector * layout->sectorSize) &&
            hasTable(media, 0, *layout))
            return true;
    return false;
}

bool readBitmap(const MediaReader &media, const ExfatLayout &layout,
                const fat::AllocationTable &table, fat::ClusterSet *used)
{
    *used = fat::ClusterSet(layout.grid);
    Bitmap bitmap;
    if (!findBitmap(media, layout, table, &bitmap))
        return false;
    const fat::ClusterGrid &grid = layout.grid;
    // Its own chain is in the table; mostly it is in one piece.
    bool isComplete = false;
    const quint32 clusters = grid.clustersFor(bitmap.length);
    fat::ClusterRuns runs = table.chain(bitmap.first, clusters, &isComplete);
    if (!isComplete)
        runs = {{bitmap.first, clusters}};
    const FileContent content = fat::contentOf(runs, grid, bitmap.length, bitmap.length);
    for (const Extent &extent : content.extents) {
        for (qint64 at = 0; at < extent.length; at += kPiece) {
            const QByteArray bits =
                media.read(extent.physical + at, qMin(kPiece, extent.length - at));
            const quint64 first = quint64(extent.logical + at) * 8 + fat::ClusterGrid::kFirst;
            for (int i = 0; i < bits.size(); ++i)
                for (int bit = 0; bits.at(i) != 0 && bit < 8; ++bit)
                    if (bits.at(i) >> bit & 1)
                        used->insert(quint32(first + quint64(i) * 8 + quint64(bit)));
        }
    }
    return true;
}

} // namespace services::recoveryd::exfat
