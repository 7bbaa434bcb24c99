#pragma once

#include "recoveryd/btrfs/chunkmap.h"
#include "recoveryd/btrfs/superblock.h"

#include <functional>
#include <vector>

namespace services::recoveryd::btrfs {

/// Reads trees as they stand now. Nodes that several trees share are visited once in the life of
/// the walk. Reads the nodes of a level in the order of their addresses. One thread.
class TreeWalk
{
public:
    using Pointer = NodeView::Pointer;

    TreeWalk(const MediaReader &media, const ChunkMap &chunks, const NodeFormat &format)
        : m_media(media)
        , m_chunks(chunks)
        , m_format(format)
    {}

    /// Calls `visit` with each leaf until it returns false. False if a node is missing, or if it
    /// was told to end.
    [[nodiscard]] bool leaves(const TreePointer &root,
                              const std::function<bool(const NodeView &)> &visit);
    /// Appends where the leaves are, without reading them. False if a node is missing.
    [[nodiscard]] bool leafPointers(const TreePointer &root, std::vector<Pointer> *pointers);

    /// Reads one node, from another copy if need be. A generation of 0 fits any.
    [[nodiscard]] bool read(const Pointer &at, int level, QByteArray *node) const;

private:
    [[nodiscard]] bool descend(const TreePointer &root, std::vector<Pointer> *leaves);

    const MediaReader &m_media;
    const ChunkMap &m_chunks;
    NodeFormat m_format;
    std::vector<quint64> m_visited; ///< Addresses of inner nodes, ascending.
};

} // namespace services::recoveryd::btrfs
