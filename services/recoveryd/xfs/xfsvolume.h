#pragma once

#include "recoveryd/xfs/geometry.h"
#include "recoveryd/xfs/inode.h"

#include <functional>
#include <map>

namespace services::recoveryd::xfs {

/// 64 inodes that were allocated together.
struct InodeChunk
{
    quint64 first = 0;
    quint64 free = 0;    ///< Bit set: the inode is free.
    quint64 missing = 0; ///< Bit set: there is no room for the inode; its blocks are others'.
};

/// A volume's structures as they would be after the log is applied: what a crash left in the log
/// only counts as if it were on disk. Reading is for any thread.
class XfsVolume
{
public:
    explicit XfsVolume(const MediaReader &media);

    /// False if no superblock is found.
    [[nodiscard]] bool open();
    bool isOpen() const { return m_isOpen; }
    const MediaReader &media() const { return m_media; }
    const Geometry &geometry() const { return m_geometry; }
    bool isLogClean() const { return m_isLogClean; }
    /// Items of the log from this sequence number on may not be on disk yet.
    quint64 logTail() const { return m_logTail; }

    /// Bytes of a structure, at most 1 MiB.
    QByteArray read(qint64 offset, int length) const;

    using TakesChunk = std::function<bool(const InodeChunk &chunk)>;
    using TakesFree = std::function<void(quint32 block, quint32 count)>;
    /// Gives all chunks of inodes of a group, ascending. False if its tree cannot be read to the
    /// end, or `take` says so.
    [[nodiscard]] bool forEachChunk(quint32 ag, const TakesChunk &take) const;
    /// Gives the free blocks of a group, ascending. False if its tree cannot be read to the end.
    [[nodiscard]] bool forEachFree(quint32 ag, const TakesFree &take) const;

private:
    struct Tree
    {
        quint32 magic = 0; ///< Version 4; version 5 has the other.
        quint32 magicV5 = 0;
        int keySize = 0;
        int recordSize = 0;
    };
    using TakesLeaf = std::function<bool(const View &records, int count)>;

    void readLog();
    [[nodiscard]] bool walkLeaves(quint32 ag, quint32 root, const Tree &tree,
                                  const TakesLeaf &take) const;
    QByteArray treeBlock(quint32 ag, quint32 block, const Tree &tree) const;

    const MediaReader &m_media;
    Geometry m_geometry;
    std::map<qint64, QByteArray> m_pending; ///< Changed pieces by offset: the latest state.
    quint64 m_logTail = 0;
    bool m_isOpen = false;
    bool m_isLogClean = true;
};

} // namespace services::recoveryd::xfs
