#include "recoveryd/fat/fatlayout.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/fat/shortentries.h"

namespace services::recoveryd::fat {

namespace {

constexpr qint64 kSector = 512;
constexpr qint64 kTableSearch = 16 * 1024 * 1024;
constexpr qint64 kMaxTable = 256 * 1024 * 1024;
constexpr qint64 kMaxNarrowTable = 1024 * 1024; ///< Far more than 16 bits can count.
constexpr qint64 kWindow = 1024 * 1024;
constexpr qint64 kMaxCluster = 256 * 1024;
constexpr quint32 kMostNarrow = 4084; ///< Clusters with entries of 12 bits.
// Root directory of a hard disk or card with FAT16; and of a floppy disk.
constexpr quint32 kUsualRootEntries[] = {512, 224, 112, 256, 1024, 2048, 64, 128};

/// The next sector from `from` on that equals `first`, before `end`; -1 if there is none.
qint64 findCopy(const MediaReader &media, const QByteArray &first, qint64 from, qint64 end)
{
    for (qint64 at = from; at < end; at += kWindow) {
        const QByteArray window = media.read(at, qMin(kWindow, end - at));
        for (qint64 i = 0; i + kSector <= window.size(); i += kSector)
            if (std::memcmp(window.constData() + i, first.constData(), size_t(kSector)) == 0)
                return at + i;
    }
    return -1;
}

/// Tables may be longer than the format lets them count.
quint32 tableCapacity(const TableLayout &table)
{
    const qint64 most = table.bits == 12 ? kMostNarrow : table.bits == 16 ? 65524 : 0x0FFFFFF5;
    return quint32(qMin(most, table.length * 8 / table.bits - 2));
}

/// Whether two stretches are copies of one table: all but what changed since the one was written.
/// Two equal sectors alone are nothing on a medium full of files.
bool areCopies(const MediaReader &media, qint64 first, qint64 second)
{
    constexpr qint64 kCompared = 256 * 1024;
    const qint64 length = qMin(kCompared, second - first);
    const QByteArray one = media.read(first, length);
    const QByteArray other = media.read(second, length);
    qint64 equal = 0;
    for (qint64 at = 0; at + kSector <= qMin(one.size(), other.size()); at += kSector)
        equal += std::memcmp(one.constData() + at, other.constData() + at, size_t(kSector)) == 0;
    return equal * kSector * 8 >= length * 7;
}

/// How many of the directories that the first clusters' heads name stand where the grid says.
int agreements(const MediaReader &media, const ClusterGrid &grid)
{
    constexpr quint32 kTried = 4096;
    constexpr qint64 kAtOnce = 1024 * 1024;
    const quint32 end = qMin(grid.end(), kTried);
    const auto perRead = quint32(qMax<qint64>(1, kAtOnce / grid.clusterSize));
    int count = 0;
    for (quint32 first = grid.kFirst; first < end; first += perRead) {
        const quint32 clusters = qMin(perRead, end - first);
        const qint64 length = (clusters - 1) * grid.clusterSize + 2 * kSlot;
        const QByteArray piece = media.read(grid.offsetOf(first), length);
        for (quint32 i = 0; i < clusters; ++i) {
            quint32 own = 0;
            quint32 parent = 0;
            if (isDirectoryHead(piece.constData() + i * grid.clusterSize, 2 * kSlot, &own, &parent))
                count += own == first + i ? 1 : -1;
        }
    }
    return count;
}

void fillGrid(const MediaReader &media, qint64 heap, qint64 clusterSize, FatLayout *layout)
{
    const qint64 left = qMax(qint64(0), media.size() - heap) / clusterSize;
    layout->grid.heapOffset = heap;
    layout->grid.clusterSize = clusterSize;
    layout->grid.count = quint32(qMin(left, qint64(tableCapacity(layout->table))));
    layout->size = heap + layout->grid.count * clusterSize;
}

/// The cluster size that makes the medium just fit the table.
qint64 fittingClusterSize(qint64 bytes, quint32 capacity)
{
    qint64 size = kSector;
    while (size < kMaxCluster && bytes / size > qint64(capacity))
        size *= 2;
    return size;
}

void tryRoot(const MediaReader &media, qint64 behindTables, quint32 rootEntries, int *best,
             FatLayout *layout)
{
    FatLayout tried = *layout;
    const qint64 rootLength = (qint64(rootEntries) * kSlot + kSector - 1) / kSector * kSector;
    const qint64 heap = behindTables + rootLength;
    tried.fixedRoot = {behindTables, rootLength};
    const qint64 fitting = fittingClusterSize(media.size() - heap, tableCapacity(tried.table));
    for (qint64 size : {fitting, fitting * 2, fitting * 4}) {
        fillGrid(media, heap, size, &tried);
        const int score = agreements(media, tried.grid);
        if (score <= *best)
            continue;
        *best = score;
        *layout = tried;
    }
}

/// Fills the grid in for the width of entries; gives how many directories agree.
int tryWidth(const MediaReader &media, qint64 behindTables, FatLayout *layout)
{
    int best = 0;
    if (layout->table.bits != 32) {
        for (quint32 entries : kUsualRootEntries)
            tryRoot(media, behindTables, entries, &best, layout);
        return best;
    }
    layout->rootCluster = ClusterGrid::kFirst;
    fillGrid(media, behindTables,
             fittingClusterSize(media.size() - behindTables, tableCapacity(layout->table)), layout);
    return qMax(0, agreements(media, layout->grid));
}

bool isSoundBoot(const MediaReader &media, qint64 offset, FatLayout *layout)
{
    FatGeometry geometry;
    if (!parseFatGeometry(media.read(offset, kSector), &geometry) || !hasTable(media, 0, geometry))
        return false;
    *layout = layoutOf(geometry);
    return true;
}

} // namespace

FatLayout layoutOf(const FatGeometry &geometry)
{
    const qint64 sector = geometry.sectorSize;
    FatLayout layout;
    for (quint32 i = 0; i < geometry.tables; ++i)
        layout.table.copies.append((geometry.reserved + qint64(i) * geometry.tableSize) * sector);
    layout.table.length = geometry.tableSize * sector;
    layout.table.bits = geometry.bits;
    layout.grid.heapOffset = qint64(geometry.dataSector()) * sector;
    layout.grid.clusterSize = geometry.sectorsPerCluster * sector;
    layout.grid.count = qMin(geometry.clusters, tableCapacity(layout.table));
    layout.rootCluster = geometry.rootCluster;
    if (geometry.bits != 32 || geometry.rootCluster == 0)
        layout.fixedRoot = {layout.grid.heapOffset - geometry.rootSectors() * sector,
                            geometry.rootEntries * qint64(kSlot)};
    layout.size = qint64(geometry.sectors) * sector;
    return layout;
}

bool isTableStart(const QByteArray &bytes, int *bits)
{
    const Fields fields(bytes);
    const quint8 media = fields.u8(0);
    // 0xFF, of floppy disks of 320 KiB, would be any table's sector with ends of chains.
    if ((media != 0xF0 && media < 0xF8) || media == 0xFF || fields.u8(1) != 0xFF ||
        fields.u8(2) != 0xFF)
        return false;
    // The two highest bits of the second entry tell whether the volume was put away cleanly.
    if ((fields.le32(0) & 0x0FFFFF00) == 0x0FFFFF00 && (fields.le32(4) & 0x03FFFFFF) == 0x03FFFFFF)
        *bits = 32;
    else
        *bits = fields.u8(3) == 0xFF || fields.u8(3) == 0x7F || fields.u8(3) == 0x3F ? 16 : 12;
    return true;
}

bool hasTable(const MediaReader &media, qint64 start, const FatGeometry &geometry)
{
    for (quint32 i = 0; i < geometry.tables; ++i) {
        const qint64 sector = geometry.reserved + qint64(i) * geometry.tableSize;
        int bits = 0;
        if (isTableStart(media.read(start + sector * geometry.sectorSize, 8), &bits))
            return true;
    }
    return false;
}

bool deriveLayout(const MediaReader &media, qint64 tableOffset, FatLayout *layout)
{
    const QByteArray first = media.read(tableOffset, kSector);
    FatLayout derived;
    if (!isTableStart(first, &derived.table.bits))
        return false;
    // A long table is looked for only where the highest bits of its first entry are clear: with
    // them set, it is a bitmap more often, and a volume has thousands of those.
    const bool isWide = derived.table.bits == 32 && quint8(first.at(3)) == 0x0F;
    const qint64 longest = isWide ? kMaxTable : kMaxNarrowTable;
    const qint64 end = qMin(media.size(), tableOffset + longest);
    const qint64 copy = findCopy(media, first, tableOffset + kSector, end);
    if (copy < 0 || !areCopies(media, tableOffset, copy))
        return false;
    derived.isDerived = true;
    derived.table.copies = {tableOffset, copy};
    derived.table.length = copy - tableOffset;
    const qint64 behind = copy + derived.table.length;
    if (behind >= media.size())
        return false;
    // Chains of one cluster at the beginning make narrow entries look like wide ones.
    int best = 0;
    for (int bits : {32, 16, 12}) {
        FatLayout tried = derived;
        tried.table.bits = bits;
        const int score = bits <= derived.table.bits ? tryWidth(media, behind, &tried) : 0;
        const bool isNarrow = bits == 12 && score == best && layout->grid.count <= kMostNarrow;
        if (score == 0 || (score <= best && !isNarrow))
            continue;
        best = score;
        *layout = tried;
    }
    return best > 0;
}

bool findFatLayout(const MediaReader &media, FatLayout *layout)
{
    if (isSoundBoot(media, 0, layout))
        return true;
    for (qint64 sector = 512; sector <= 4096; sector *= 2)
        if (isSoundBoot(media, kBackupSector * sector, layout))
            return true;
    const qint64 end = qMin(media.size(), kTableSearch);
    for (qint64 at = 0; at < end; at += kWindow) {
        const QByteArray window = media.read(at, kWindow);
        for (qint64 i = 0; i + kSector <= window.size(); i += kSector) {
            int bits = 0;
            if (quint8(window.at(int(i))) >= 0xF0 &&
                isTableStart(QByteArray::fromRawData(window.constData() + i, 8), &bits) &&
                deriveLayout(media, at + i, layout))
                return true;
        }
    }
    return false;
}

} // namespace services::recoveryd::fat
