#include "recoveryd/xfs/fork.h"

#include <algorithm>

namespace services::recoveryd::xfs {

namespace {

constexpr int kRecord = 16;
constexpr int kMaxLevel = 8;
constexpr int kMaxTreeBlocks = 100000;
constexpr quint64 kMaxExtents = 4000000;
constexpr quint32 kMagic = 0x424D4150;   // BMAP
constexpr quint32 kMagicV5 = 0x424D4133; // BMA3

bool isTreeMagic(quint32 magic)
{
    return magic == kMagic || magic == kMagicV5;
}

int headerOf(quint32 magic)
{
    return magic == kMagicV5 ? 72 : 24;
}

Mapped recordAt(const View &view, int place)
{
    const quint64 high = view.u64(place);
    const quint64 low = view.u64(place + 8);
    Mapped mapped;
    mapped.isUnwritten = (high >> 63) != 0;
    mapped.logical = (high & ~(1ULL << 63)) >> 9;
    mapped.block = (high & 0x1FF) << 43 | low >> 21;
    mapped.count = quint32(low & 0x1FFFFF);
    return mapped;
}

bool isPlausible(const Mapped &mapped, quint64 after, const Geometry &geometry)
{
    return mapped.count > 0 && mapped.logical >= after && mapped.end() < (1ULL << 52) &&
           geometry.offsetOfBlock(mapped.block) > 0 &&
           geometry.offsetOfBlock(mapped.block + mapped.count - 1) -
                   geometry.offsetOfBlock(mapped.block) ==
               qint64(mapped.count - 1) * geometry.blockSize;
}

quint64 endOf(const BlockMap &map)
{
    return map.extents.empty() ? 0 : map.extents.back().end();
}

/// The root of a tree, as opposed to a list of extents: their first word would be an offset that
/// no file reaches.
bool isRoot(const QByteArray &fork)
{
    const View view(fork);
    const int room = (fork.size() - 4) / 16;
    return view.u16(0) >= 1 && view.u16(0) <= kMaxLevel && view.u16(2) >= 1 && view.u16(2) <= room;
}

} // namespace

bool readExtents(const View &records, quint64 most, const Geometry &geometry, BlockMap *map)
{
    for (quint64 i = 0; i < most; ++i) {
        const int place = int(i) * kRecord;
        if (!records.has(place, kRecord))
            return false;
        const Mapped mapped = recordAt(records, place);
        if (!isPlausible(mapped, endOf(*map), geometry))
            return false;
        map->extents.push_back(mapped);
    }
    return true;
}

bool BlockMap::covers(const BlockMap &other) const
{
    auto mine = extents.begin();
    for (Mapped wanted : other.extents) {
        while (!wanted.isUnwritten && wanted.count > 0) {
            while (mine != extents.end() && mine->end() <= wanted.logical)
                ++mine;
            if (mine == extents.end() || mine->logical > wanted.logical ||
                mine->block + (wanted.logical - mine->logical) != wanted.block)
                return false;
            const quint32 part = quint32(qMin(quint64(wanted.count), mine->end() - wanted.logical));
            wanted.logical += part;
            wanted.block += part;
            wanted.count -= part;
        }
    }
    return true;
}

quint64 BlockMap::end() const
{
    quint64 end = 0;
    for (const Mapped &mapped : extents)
        if (!mapped.isUnwritten)
            end = mapped.end();
    return end;
}

void TreeHistory::add(const LoggedBuffer &item, quint64 lsn)
{
    constexpr qint64 kMostKept = 64 * 1024 * 1024;
    if (item.holdsInodes || item.pieces.isEmpty())
        return;
    const LoggedBuffer::Piece &first = item.pieces.first();
    const bool isTree = first.at == 0 && isTreeMagic(View(first.bytes).u32(0));
    if (!isTree || m_bytes > kMostKept)
        return;
    std::vector<Piece> &pieces = m_blocks[item.offset];
    for (const LoggedBuffer::Piece &piece : item.pieces) {
        pieces.push_back({lsn, piece.at, piece.bytes});
        m_bytes += piece.bytes.size() + int(sizeof(Piece));
    }
}

QByteArray TreeHistory::blockAt(qint64 offset, quint64 lsn, const QByteArray &onDisk) const
{
    const auto it = m_blocks.constFind(offset);
    if (it == m_blocks.constEnd())
        return onDisk;
    QByteArray block = isTreeMagic(View(onDisk).u32(0)) ? onDisk : QByteArray(onDisk.size(), '\0');
    for (const Piece &piece : *it) {
        const int length = qMin(piece.bytes.size(), block.size() - piece.at);
        if (piece.lsn <= lsn && length > 0)
            std::memcpy(block.data() + piece.at, piece.bytes.constData(), size_t(length));
    }
    return block;
}

bool ForkReader::readNode(quint64 block, int level, const Geometry &geometry, Walk *walk,
                          BlockMap *map) const
{
    const qint64 offset = geometry.offsetOfBlock(block);
    if (offset <= 0 || --walk->blocksLeft < 0)
        return false;
    QByteArray bytes = m_volume.read(offset, int(geometry.blockSize));
    if (m_history)
        bytes = m_history->blockAt(offset, walk->lsn, bytes);
    const View view(bytes);
    const quint32 magic = view.u32(0);
    const int header = headerOf(magic);
    if (!isTreeMagic(magic) || view.u16(4) != level ||
        (magic == kMagicV5 && view.u64(56) != walk->number))
        return false;
    const int count = view.u16(6);
    const View body = view.from(header);
    if (level > 0) {
        const int room = body.size() / 16;
        bool isWhole = count <= room;
        for (int i = 0; i < qMin(count, room); ++i)
            isWhole &= readNode(body.u64(8 * room + 8 * i), level - 1, geometry, walk, map);
        return isWhole;
    }
    bool isWhole = readExtents(body, quint64(count), geometry, map);
    for (int i = count; walk->takesRemains && body.has(i * kRecord, kRecord) &&
                        quint64(map->extents.size()) < walk->most;
         ++i)
        if (!readExtents(body.from(i * kRecord), 1, geometry, map))
            break;
    return isWhole;
}

void ForkReader::readTree(const Inode &inode, const Geometry &geometry, Walk walk,
                          BlockMap *map) const
{
    const View view(inode.fork);
    const int room = (inode.fork.size() - 4) / 16;
    walk.blocksLeft = kMaxTreeBlocks;
    map->isComplete = isRoot(inode.fork);
    for (int i = 0; i < view.u16(2) && map->isComplete; ++i)
        map->isComplete &=
            readNode(view.u64(4 + 8 * room + 8 * i), view.u16(0) - 1, geometry, &walk, map);
}

BlockMap ForkReader::read(quint64 number, const Inode &inode, const Geometry &geometry) const
{
    BlockMap map;
    if (!inode.hasFork)
        return map;
    if (inode.format == ForkFormat::Extents) {
        map.isComplete =
            readExtents(View(inode.fork), qMin(inode.extents, kMaxExtents), geometry, &map);
        return map;
    }
    if (inode.format != ForkFormat::Tree)
        return map;
    for (bool takesRemains : {false, true}) {
        BlockMap found;
        readTree(inode, geometry, {number, inode.lsn, takesRemains, inode.extents, 0}, &found);
        found.isComplete &= quint64(found.extents.size()) == inode.extents;
        if (found.extents.size() > map.extents.size() || found.isComplete)
            map = found;
        if (map.isComplete)
            break;
    }
    return map;
}

BlockMap ForkReader::readRemains(quint64 number, const Inode &inode, const Geometry &geometry) const
{
    BlockMap map;
    if (isRoot(inode.fork)) {
        // How much room the root had is forgotten as well; the pointers stand behind its keys.
        Inode tried = inode;
        for (int room = (inode.fork.size() - 4) / 16; room >= View(inode.fork).u16(2); --room) {
            tried.fork = inode.fork.left(4 + 16 * room);
            BlockMap found;
            readTree(tried, geometry, {number, inode.lsn, true, kMaxExtents, 0}, &found);
            if (found.extents.size() > map.extents.size())
                map = found;
        }
        return map;
    }
    const View view(inode.fork);
    for (int at = 0; view.has(at, kRecord); at += kRecord) {
        // Behind the records of the file there may be those of an earlier one; they rarely go on
        // where it ended.
        if (!map.extents.empty() && recordAt(view, at).logical != endOf(map))
            break;
        if (!readExtents(view.from(at), 1, geometry, &map))
            break;
    }
    map.isComplete = !map.extents.empty() && map.extents.front().logical == 0;
    return map;
}

FileContent contentOf(const BlockMap &map, qint64 size, const Geometry &geometry)
{
    FileContent content;
    content.size = size;
    for (const Mapped &mapped : map.extents) {
        const qint64 logical = qint64(mapped.logical) * geometry.blockSize;
        const qint64 length = qMin(qint64(mapped.count) * geometry.blockSize, size - logical);
        if (logical >= 0 && length > 0 && !mapped.isUnwritten)
            content.append(logical, geometry.offsetOfBlock(mapped.block), length);
    }
    return content;
}

qint64 estimatedSize(const BlockMap &map, const MediaReader &media, const Geometry &geometry)
{
    const quint64 end = map.end();
    for (auto it = map.extents.rbegin(); it != map.extents.rend(); ++it) {
        if (it->isUnwritten)
            continue;
        const qint64 offset = geometry.offsetOfBlock(it->block + it->count - 1);
        const QByteArray bytes = media.read(offset, geometry.blockSize);
        int used = bytes.size();
        while (used > 0 && bytes.at(used - 1) == '\0')
            --used;
        return qint64(end - 1) * geometry.blockSize + used;
    }
    return 0;
}

} // namespace services::recoveryd::xfs
