#pragma once

#include "recoveryd/btrfs/treewalk.h"

#include <QMap>

namespace services::recoveryd::btrfs {

/// A file system as its superblock and its trees tell now. One thread.
class BtrfsVolume
{
public:
    explicit BtrfsVolume(const MediaReader &media)
        : m_media(media)
    {}

    /// Reads the superblock, the chunk map and the roots of all trees. False if there is no
    /// superblock; what else is missing tell the questions below.
    [[nodiscard]] bool open();

    const MediaReader &media() const { return m_media; }
    const Superblock &superblock() const { return m_super; }
    const NodeFormat &format() const { return m_super.format; }
    const ChunkMap &chunks() const { return m_chunks; }
    bool areChunksComplete() const { return m_areChunksComplete; }
    /// Whether the root tree of the last transaction could be read, not one before it.
    bool areRootsCurrent() const { return m_areRootsCurrent; }

    /// The root of a tree; address 0 if there is none.
    TreePointer root(quint64 tree) const { return m_roots.value(tree); }
    /// Where the leaves of all subvolumes and of the log are, ascending by address. False if some
    /// are missing.
    [[nodiscard]] bool fileLeaves(std::vector<NodeView::Pointer> *pointers) const;

private:
    void readChunks();
    [[nodiscard]] bool readRoots(const TreePointer &root);
    QVector<TreePointer> logRoots(TreeWalk &walk) const;

    const MediaReader &m_media;
    Superblock m_super;
    ChunkMap m_chunks;
    QMap<quint64, TreePointer> m_roots;
    bool m_areChunksComplete = false;
    bool m_areRootsCurrent = false;
};

/// What the file system calls free, and what belongs to no chunk. Bytes of the device.
[[nodiscard]] bool btrfsFreeRanges(const BtrfsVolume &volume, Ranges *ranges, QString *error);

} // namespace services::recoveryd::btrfs
