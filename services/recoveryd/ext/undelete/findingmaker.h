#pragma once

#include "recoveryd/ext/undelete/tree.h"
#include "recoveryd/scan/scanner.h"

namespace services::recoveryd::ext {

/// Makes findings of inodes and what is known of their time. One thread.
class FindingMaker
{
public:
    FindingMaker(const Blocks &blocks, const InodeHistory &inodes, MapReader &maps, Tree &tree)
        : m_blocks(blocks)
        , m_inodes(inodes)
        , m_maps(maps)
        , m_tree(tree)
    {}

    /// What a life left behind that is lost now: its newest content if it ended, and earlier ones
    /// that were cut off or replaced. `onlyFull`: nothing while the path is not known to the root.
    /// False if there is nothing more to be had from this life later.
    enum class Outcome { Done, Later, Ended };
    Outcome reportLife(const Life &life, bool onlyFull, ScanObserver &observer);

    /// A file that the volume has now. `bytes`: the block of the inode table. False to end.
    [[nodiscard]] bool reportExisting(quint32 number, const Inode &inode, const QByteArray &bytes,
                                      quint32 slot, ScanObserver &observer);
    /// A deleted file whose map still stands in its inode, as some tools and old kernels leave it.
    [[nodiscard]] bool reportStanding(quint32 number, const Inode &inode, ScanObserver &observer);

private:
    struct Kept
    {
        BlockMap map;
        qint64 size = 0;
    };

    bool isCovered(const std::vector<Kept> &kept, const BlockMap &map, qint64 size) const;
    Finding describe(const Life &life, const InodeState &state, const BlockMap &map) const;
    qint64 takenBytes(const BlockMap &map, Order order) const;
    qint64 deletedMs(const Life &life, const InodeState &state, bool isNewest,
                     const InodeState *newer) const;
    QByteArray inlineData(const InodeState &state) const;

    const Blocks &m_blocks;
    const InodeHistory &m_inodes;
    MapReader &m_maps;
    Tree &m_tree;
};

} // namespace services::recoveryd::ext
