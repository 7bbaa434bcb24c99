#pragma once

#include "recoveryd/content/filecontent.h"
#include "recoveryd/ext/undelete/journal.h"

#include <utility>
#include <vector>

namespace services::recoveryd::ext {

/// The blocks of the volume in all the versions that are left of them. One thread.
class Blocks
{
public:
    Blocks(const Layout &layout, const Journal *journal)
        : m_layout(layout)
        , m_journal(journal)
    {}

    const Layout &layout() const { return m_layout; }
    /// Null if the volume has none.
    const Journal *journal() const { return m_journal; }

    /// The block as the volume stands, with what the journal has yet to write.
    QByteArray current(qint64 block) const;
    /// Calls `isGood` with the versions of a block, the likeliest for that time first, until it
    /// accepts one. `volumeFirst`: what stands on the volume is asked before the journal.
    template <typename IsGood>
    bool find(qint64 block, Order order, bool volumeFirst, IsGood isGood) const
    {
        if (order == kNow)
            return isGood(current(block));
        if (volumeFirst && isGood(m_layout.readBlock(block)))
            return true;
        if (m_journal) {
            const auto versions = m_journal->history().versionsOf(block);
            auto behind = versions.first;
            while (behind != versions.second && behind->order <= order)
                ++behind;
            int asked = 0;
            for (auto it = behind; it != versions.first && asked < kMaxTries; ++asked)
                if (isGood(m_journal->read(*--it)))
                    return true;
            if (!volumeFirst && isGood(m_layout.readBlock(block)))
                return true;
            for (auto it = behind; it != versions.second && asked < 2 * kMaxTries; ++it, ++asked)
                if (isGood(m_journal->read(*it)))
                    return true;
            return false;
        }
        return !volumeFirst && isGood(m_layout.readBlock(block));
    }

private:
    static constexpr int kMaxTries = 8;

    const Layout &m_layout;
    const Journal *m_journal;
};

/// A run of blocks; `logical` counts from the start of the file.
struct Run
{
    qint64 logical = 0;
    qint64 block = 0;
    qint64 count = 0;

    qint64 logicalEnd() const { return logical + count; }
};

/// Where the blocks of a file are, or were.
struct BlockMap
{
    std::vector<Run> runs;          ///< Ascending, neighbours joined; unwritten ones left out.
    std::vector<qint64> treeBlocks; ///< That hold the map itself.
    bool isComplete = true;         ///< No part of the map is missing or contradicts itself.

    /// Whether this has every block that `other` has, at the same place of the file.
    bool covers(const BlockMap &other) const;
};

/// Follows extent trees and block maps through the versions of their blocks.
class MapReader
{
public:
    explicit MapReader(const Blocks &blocks)
        : m_blocks(blocks)
    {}

    /// The map of an inode as it stood at a time. `seed`: the start value of the inode's checksums,
    /// for volumes that keep them; parts with a wrong checksum are not taken.
    BlockMap read(const Inode &inode, Order order, quint32 seed);
    /// The indirect blocks of all maps read so far, which are forgotten here.
    std::vector<qint64> takeTreeBlocks() { return std::exchange(m_treeBlocks, {}); }
    /// Checksums are not looked at, for inodes of an earlier file system.
    void setChecked(bool isChecked) { m_isChecked = isChecked; }

private:
    struct Node
    {
        qint64 block = 0;
        qint64 logical = 0;
        qint64 end = 0; ///< Logical; what lies behind belongs to the next node.
        int depth = 0;
    };

    BlockMap readOnce(const Inode &inode, bool volumeFirst);
    bool readExtents(const QByteArray &bytes, const Node &node, BlockMap *map);
    bool isNode(const QByteArray &bytes, const Node &node) const;
    bool readPointers(const Node &node, BlockMap *map);
    bool isPointerBlock(const QByteArray &bytes) const;
    void readMap(const QByteArray &map, qint64 blocks, BlockMap *result);
    bool add(qint64 logical, qint64 block, qint64 count, BlockMap *map) const;
    bool mayReadNode();
    bool fitsBlockCount(const Inode &inode, const BlockMap &map) const;

    const Blocks &m_blocks;
    Order m_order = kNow;
    quint32 m_seed = 0;
    bool m_isChecked = true;
    bool m_volumeFirst = false;
    qint64 m_unwritten = 0; ///< Blocks of the map being read that are allocated but not written.
    int m_nodes = 0;        ///< Of one file.
    qint64 m_allNodes = 0;
    std::vector<qint64> m_treeBlocks;
};

/// The content of a file of `size` bytes by its map. Blocks whose newest bytes are only in the
/// journal, as with data=journal, are taken from there; `since` is the first time at which the
/// file is known to have existed.
FileContent contentOf(const Blocks &blocks, const BlockMap &map, qint64 size, Order since,
                      Order order);

} // namespace services::recoveryd::ext
