#include "recoveryd/btrfs/btrfsvolume.h"

namespace services::recoveryd::btrfs {

namespace {

constexpr qint64 kReservedHead = 1024 * 1024;
constexpr int kMaxRanges = 32 * 1000 * 1000;
constexpr qint64 kMaxLength = qint64(1) << 60;

/// Collects stretches of addresses as ranges of the device.
class AddressRanges
{
public:
    explicit AddressRanges(const ChunkMap &chunks)
        : m_chunks(chunks)
    {}

    /// All copies of it.
    void add(quint64 address, quint64 length)
    {
        if (length == 0 || length > quint64(kMaxLength) || m_ranges.size() > kMaxRanges)
            return;
        const int copies = qMin(m_chunks.copies(address), 4);
        for (int copy = 0; copy < copies; ++copy)
            for (const ChunkMap::Part &part : m_chunks.map(address, qint64(length), copy))
                append({part.physical, part.length});
    }
    Ranges joined() const { return joinedRanges(m_ranges); }

private:
    void append(const Range &range)
    {
        if (range.start < 0)
            return;
        if (!m_ranges.isEmpty() && m_ranges.last().end() == range.start)
            m_ranges.last().length += range.length;
        else
            m_ranges.append(range);
    }

    const ChunkMap &m_chunks;
    Ranges m_ranges;
};

void addBitmap(const ItemView &item, int sectorSize, AddressRanges *free)
{
    quint64 begin = 0;
    bool isOpen = false;
    const quint64 sectors = qMin(quint64(item.size) * 8, item.key.offset / quint64(sectorSize));
    for (quint64 i = 0; i <= sectors; ++i) {
        const bool isFree = i < sectors && (quint8(item.data[i / 8]) >> (i % 8) & 1) != 0;
        if (isFree && !isOpen)
            begin = i;
        if (!isFree && isOpen)
            free->add(item.key.id + begin * quint64(sectorSize), (i - begin) * quint64(sectorSize));
        isOpen = isFree;
    }
}

[[nodiscard]] bool freeByTree(const BtrfsVolume &volume, AddressRanges *free)
{
    const TreePointer root = volume.root(kFreeSpaceTree);
    TreeWalk walk(volume.media(), volume.chunks(), volume.format());
    return root.address != 0 && walk.leaves(root, [&](const NodeView &leaf) {
        for (int i = 0; i < leaf.count(); ++i) {
            const ItemView item = leaf.item(i);
            if (item.key.type == kFreeSpaceExtent)
                free->add(item.key.id, item.key.offset);
            else if (item.key.type == kFreeSpaceBitmap)
                addBitmap(item, volume.format().sectorSize, free);
        }
        return true;
    });
}

[[nodiscard]] bool usedByExtents(const BtrfsVolume &volume, AddressRanges *used)
{
    const TreePointer root = volume.root(kExtentTree);
    TreeWalk walk(volume.media(), volume.chunks(), volume.format());
    return root.address != 0 && walk.leaves(root, [&](const NodeView &leaf) {
        for (int i = 0; i < leaf.count(); ++i) {
            const ItemView item = leaf.item(i);
            if (item.key.type == kExtentItem)
                used->add(item.key.id, item.key.offset);
            else if (item.key.type == kMetadataItem)
                used->add(item.key.id, quint64(volume.format().nodeSize));
        }
        return true;
    });
}

} // namespace

bool btrfsFreeRanges(const BtrfsVolume &volume, Ranges *ranges, QString *error)
{
    constexpr quint64 kAny = kDataChunk | kMetadataChunk | kSystemChunk;
    if (!volume.areChunksComplete() || !volume.areRootsCurrent()) {
        *error = QStringLiteral("Btrfs 的块组映射或根树已损坏");
        return false;
    }
    Ranges used = volume.chunks().ranges(kAny, true);
    AddressRanges free(volume.chunks());
    if (volume.superblock().hasFreeSpaceTree && freeByTree(volume, &free)) {
        used = subtracted(used, free.joined());
    } else {
        AddressRanges taken(volume.chunks());
        if (!usedByExtents(volume, &taken)) {
            *error = QStringLiteral("Btrfs 的空间分配树已损坏");
            return false;
        }
        used = taken.joined();
    }
    used.append({0, kReservedHead});
    for (quint64 place : kSuperblockPlaces)
        used.append({qint64(place), kSuperblockSize});
    *ranges = subtracted({{0, volume.media().size()}}, joinedRanges(used));
    return true;
}

} // namespace services::recoveryd::btrfs
