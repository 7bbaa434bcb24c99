#pragma once

#include "recoveryd/xfs/xfsvolume.h"

#include <vector>

namespace services::recoveryd::xfs {

/// The inodes that a volume has room for now, group by group.
class InodeWalk
{
public:
    using Takes = std::function<bool(quint64 number, const View &bytes, bool isAllocated)>;
    using GoesOn = std::function<bool(qint64 done)>; ///< `done`: bytes of inodes.

    explicit InodeWalk(const XfsVolume &volume)
        : m_volume(volume)
    {}

    /// Reads the trees of all groups. Those of which the tree is damaged have no chunks.
    void readTrees();
    bool isGroupKnown(quint32 ag) const { return ag < m_isKnown.size() && m_isKnown[ag]; }
    bool isChunkKnown(quint64 number) const { return chunkOf(number) != nullptr; }
    bool isAllocated(quint64 number) const;
    qint64 totalWork() const;

    /// Gives all inodes in the order of their numbers. False if it was ended.
    [[nodiscard]] bool run(const Takes &take, const GoesOn &goesOn) const;

private:
    const InodeChunk *chunkOf(quint64 number) const;

    const XfsVolume &m_volume;
    std::vector<InodeChunk> m_chunks; ///< Ascending.
    std::vector<bool> m_isKnown;      ///< By group.
};

} // namespace services::recoveryd::xfs
