#include "recoveryd/ext/undelete/blockmap.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/crc32c.h"

#include <algorithm>

namespace services::recoveryd::ext {

namespace {

constexpr quint16 kTreeMagic = 0xF30A;
constexpr int kMaxDepth = 5;
constexpr int kEntrySize = 12;
constexpr int kMaxWritten = 32768; ///< Longer extents are allocated, but were never written.
constexpr int kDirectBlocks = 12;
constexpr int kMaxNodes = 65536;                  ///< Of one file.
constexpr size_t kMaxRuns = 1000000;              ///< Of one file.
constexpr qint64 kMaxAllNodes = 16 * 1000 * 1000; ///< Of a scan, against maps that all share one.
constexpr qint64 kEndOfFile = qint64(1) << 32;

qint64 entryBlock(const Fields &at, int entry)
{
    return (qint64(at.le16(entry + 8)) << 32) | at.le32(entry + 4);
}

} // namespace

QByteArray Blocks::current(qint64 block) const
{
    const Version *version = m_journal ? m_journal->pending(block) : nullptr;
    return version ? m_journal->read(*version) : m_layout.readBlock(block);
}

bool BlockMap::covers(const BlockMap &other) const
{
    size_t own = 0;
    for (const Run &run : other.runs) {
        qint64 at = run.logical;
        while (at < run.logicalEnd()) {
            while (own < runs.size() && runs[own].logicalEnd() <= at)
                ++own;
            if (own == runs.size() || runs[own].logical > at ||
                runs[own].block - runs[own].logical != run.block - run.logical)
                return false;
            at = runs[own].logicalEnd();
        }
    }
    return true;
}

bool MapReader::mayReadNode()
{
    return ++m_nodes <= kMaxNodes && ++m_allNodes <= kMaxAllNodes;
}

BlockMap MapReader::read(const Inode &inode, Order order, quint32 seed)
{
    m_order = order;
    m_seed = seed;
    BlockMap map = readOnce(inode, false);
    if (!inode.is(Inode::Extents))
        m_treeBlocks.insert(m_treeBlocks.end(), map.treeBlocks.begin(), map.treeBlocks.end());
    if (map.treeBlocks.empty() || (map.isComplete && fitsBlockCount(inode, map)))
        return map;
    // Parts of the tree were written at different times: the number of blocks shows which fit.
    BlockMap other;
    if (order != kNow) {
        other = readOnce(inode, true);
        if (other.isComplete && fitsBlockCount(inode, other))
            return other;
    }
    map.isComplete = false;
    return map;
}

BlockMap MapReader::readOnce(const Inode &inode, bool volumeFirst)
{
    BlockMap map;
    m_nodes = 0;
    m_unwritten = 0;
    m_volumeFirst = volumeFirst;
    const QByteArray bytes = inode.mapBytes();
    if (inode.is(Inode::InlineData))
        return map;
    const qint64 blockSize = m_blocks.layout().blockSize();
    if (inode.is(Inode::Extents)) {
        const Node root = {0, 0, kEndOfFile, Fields(bytes).le16(6)};
        const bool isTree = root.depth <= kMaxDepth && Fields(bytes).le16(0) == kTreeMagic &&
                            12 + Fields(bytes).le16(2) * kEntrySize <= bytes.size();
        map.isComplete = isTree && readExtents(bytes, root, &map);
    } else {
        readMap(bytes, inode.size / blockSize + (inode.size % blockSize ? 1 : 0), &map);
    }
    return map;
}

bool MapReader::readExtents(const QByteArray &bytes, const Node &node, BlockMap *map)
{
    const Fields at(bytes);
    const int entries = at.le16(2);
    bool isComplete = true;
    for (int i = 0; i < entries; ++i) {
        const int entry = 12 + i * kEntrySize;
        const qint64 logical = at.le32(entry);
        if (node.depth == 0) {
            const int length = at.le16(entry + 4);
            const qint64 block = (qint64(at.le16(entry + 6)) << 32) | at.le32(entry + 8);
            if (length > kMaxWritten)
                m_unwritten += length - kMaxWritten;
            else
                isComplete = add(logical, block, length, map) && isComplete;
            continue;
        }
        const Node below = {entryBlock(at, entry), logical,
                            i + 1 < entries ? qint64(at.le32(entry + kEntrySize)) : node.end,
                            node.depth - 1};
        map->treeBlocks.push_back(below.block);
        QByteArray found;
        const bool isFound =
            m_blocks.layout().isDataBlock(below.block) && mayReadNode() &&
            m_blocks.find(below.block, m_order, m_volumeFirst, [&](const QByteArray &candidate) {
                found = candidate;
                return isNode(candidate, below);
            });
        isComplete = isFound && readExtents(found, below, map) && isComplete;
    }
    return isComplete;
}

bool MapReader::isNode(const QByteArray &bytes, const Node &node) const
{
    const Fields at(bytes);
    const int entries = at.le16(2);
    const int most = at.le16(4);
    const int tail = 12 + most * kEntrySize;
    if (at.le16(0) != kTreeMagic || at.le16(6) != node.depth || entries < 1 || entries > most ||
        tail > bytes.size())
        return false;
    qint64 before = node.logical;
    for (int i = 0; i < entries; ++i) {
        const qint64 logical = at.le32(12 + i * kEntrySize);
        if (logical < before || logical >= node.end)
            return false;
        before = logical + 1;
    }
    return !m_isChecked || !m_blocks.layout().super().hasMetadataChecksums() ||
           crc32c(m_seed, bytes.constData(), tail) == at.le32(tail);
}

void MapReader::readMap(const QByteArray &bytes, qint64 blocks, BlockMap *result)
{
    const Fields at(bytes);
    for (int i = 0; i < kDirectBlocks; ++i)
        result->isComplete = add(i, at.le32(i * 4), 1, result) && result->isComplete;
    const qint64 perBlock = m_blocks.layout().blockSize() / 4;
    qint64 logical = kDirectBlocks;
    qint64 reach = perBlock;
    for (int level = 1; level <= 3; ++level) {
        const qint64 block = at.le32((kDirectBlocks + level - 1) * 4);
        const Node node = {block, logical, qMax(blocks, logical + 1), level - 1};
        if (block != 0)
            result->isComplete = readPointers(node, result) && result->isComplete;
        logical += reach;
        reach *= perBlock;
    }
}

/// Reads the block of a node and what its pointers lead to.
bool MapReader::readPointers(const Node &node, BlockMap *map)
{
    map->treeBlocks.push_back(node.block);
    QByteArray bytes;
    if (!m_blocks.layout().isDataBlock(node.block) || !mayReadNode() ||
        !m_blocks.find(node.block, m_order, m_volumeFirst, [&](const QByteArray &candidate) {
            bytes = candidate;
            return isPointerBlock(candidate);
        }))
        return false;
    const Fields at(bytes);
    const qint64 perBlock = m_blocks.layout().blockSize() / 4;
    qint64 reach = 1;
    for (int level = 0; level < node.depth; ++level)
        reach *= perBlock;
    bool isComplete = true;
    for (qint64 i = 0; i < perBlock; ++i) {
        const qint64 block = at.le32(int(i * 4));
        const qint64 logical = node.logical + i * reach;
        if (block == 0)
            continue;
        if (node.depth == 0)
            isComplete = add(logical, block, 1, map) && isComplete;
        else
            isComplete =
                readPointers({block, logical, node.end, node.depth - 1}, map) && isComplete;
    }
    return isComplete;
}

/// An emptied one is what a deletion in several steps leaves behind, and tells nothing.
bool MapReader::isPointerBlock(const QByteArray &bytes) const
{
    bool isEmpty = true;
    for (int i = 0; i + 4 <= bytes.size(); i += 4) {
        const quint32 block = qFromLittleEndian<quint32>(bytes.constData() + i);
        if (block == 0)
            continue;
        if (!m_blocks.layout().isDataBlock(block))
            return false;
        isEmpty = false;
    }
    return !isEmpty;
}

/// Block 0 marks a hole.
bool MapReader::add(qint64 logical, qint64 block, qint64 count, BlockMap *map) const
{
    if (block == 0 || count == 0)
        return true;
    const Layout &layout = m_blocks.layout();
    if (!layout.isDataBlock(block) || !layout.isDataBlock(block + count - 1) ||
        map->runs.size() >= kMaxRuns)
        return false;
    if (!map->runs.empty()) {
        Run &last = map->runs.back();
        if (logical < last.logicalEnd())
            return false;
        if (logical == last.logicalEnd() && block == last.block + last.count) {
            last.count += count;
            return true;
        }
    }
    map->runs.push_back({logical, block, count});
    return true;
}

/// Whether the inode's own number of blocks is that of the map. Counts clusters where the volume
/// allocates by them.
bool MapReader::fitsBlockCount(const Inode &inode, const BlockMap &map) const
{
    const ExtSuperblock &super = m_blocks.layout().super();
    if (super.hasClusters())
        return true;
    qint64 blocks = m_unwritten + qint64(map.treeBlocks.size());
    for (const Run &run : map.runs)
        blocks += run.count;
    if (inode.hasAttributeBlock)
        ++blocks;
    const qint64 unit = inode.is(Inode::HugeFile) ? 1 : super.blockSize / 512;
    return quint64(blocks * unit) == inode.blocks;
}

FileContent contentOf(const Blocks &blocks, const BlockMap &map, qint64 size, Order since,
                      Order order)
{
    FileContent content;
    content.size = size;
    const qint64 blockSize = blocks.layout().blockSize();
    const Journal *journal = blocks.journal();
    const std::vector<Version> none;
    const std::vector<Version> &versions = journal ? journal->history().versions() : none;
    const auto append = [&](qint64 logical, qint64 block, qint64 count) {
        const qint64 at = logical * blockSize;
        content.append(at, block * blockSize, qMin(count * blockSize, size - at));
    };
    for (const Run &run : map.runs) {
        qint64 done = 0;

        auto version =
            std::partition_point(versions.begin(), versions.end(),
                                 [&run](const Version &other) { return other.block < run.block; });
        while (version != versions.end() && version->block < run.block + run.count) {
            const qint64 block = version->block;
            const Version *newest = journal->history().newest(block, order);
            while (version != versions.end() && version->block == block)
                ++version;
            if (!newest || newest->order < since || newest->isEscaped ||
                journal->history().isRevoked(block, newest->order, order) ||
                blocks.layout().readBlock(block) == journal->read(*newest))
                continue;
            const qint64 before = block - run.block;
            append(run.logical + done, run.block + done, before - done);
            append(run.logical + before, journal->placeOf(newest->at), 1);
            done = before + 1;
        }
        append(run.logical + done, run.block + done, run.count - done);
    }
    return content;
}

} // namespace services::recoveryd::ext
