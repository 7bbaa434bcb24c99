#pragma once

#include "recoveryd/btrfs/checksumindex.h"
#include "recoveryd/btrfs/chunkmap.h"
#include "recoveryd/btrfs/folderbook.h"
#include "recoveryd/btrfs/piecestore.h"

namespace services::recoveryd::btrfs {

/// All that the nodes of one file system tell, of all generations together. One thread.
class Remains
{
public:
    explicit Remains(const NodeFormat &format)
        : m_format(format)
    {}

    /// Takes what a node at `offset` of the device holds. `isLive`: it belongs to the file system
    /// as it is now.
    void add(qint64 offset, const NodeView &node, bool isLive);
    /// To be called once, behind the last add().
    void finish();

    const NodeFormat &format() const { return m_format; }
    ChunkMap &chunks() { return m_chunks; }
    const ChunkMap &chunks() const { return m_chunks; }
    /// The superblock tells which device this is; otherwise it shows by where the nodes are.
    void setDevice(quint64 id);
    const PieceStore &pieces() const { return m_pieces; }
    const FolderBook &folders() const { return m_folders; }
    const ChecksumIndex &checksums() const { return m_checksums; }
    /// The subvolume with the most files.
    quint64 largestTree() const;

private:
    struct Place
    {
        quint64 address = 0;
        qint64 offset = 0;
    };

    void addPieces(qint64 offset, const NodeView &leaf, bool isLive);
    void addEntries(const NodeView &leaf);
    void addRoots(const NodeView &leaf);
    void addChunks(const NodeView &leaf);
    void addDeviceExtents(const NodeView &leaf);
    void findDevice();

    NodeFormat m_format;
    ChunkMap m_chunks;
    bool m_isDeviceKnown = false;
    PieceStore m_pieces;
    FolderBook m_folders;
    ChecksumIndex m_checksums;
    QHash<quint64, quint64> m_treeSizes; ///< Pieces by tree.
    QVector<Place> m_places;             ///< Of some nodes.
};

} // namespace services::recoveryd::btrfs
