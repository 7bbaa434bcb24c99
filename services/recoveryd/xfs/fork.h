#pragma once

#include "recoveryd/content/filecontent.h"
#include "recoveryd/xfs/logitems.h"
#include "recoveryd/xfs/xfsvolume.h"

#include <vector>

namespace services::recoveryd::xfs {

/// An extent of a file. Blocks of the file system.
struct Mapped
{
    quint64 logical = 0;
    quint64 block = 0;
    quint32 count = 0;
    bool isUnwritten = false; ///< Reserved only; reads as zeros.

    quint64 end() const { return logical + count; }
};

/// Which blocks a file has, or had.
struct BlockMap
{
    std::vector<Mapped> extents; ///< Ascending, without overlap.
    bool isComplete = false;

    /// Whether all written blocks of `other` are here, in the same places.
    bool covers(const BlockMap &other) const;
    /// End of the last written block, in blocks of the file.
    quint64 end() const;
};

/// Appends up to `most` records of extents; false where one cannot be one of this volume.
bool readExtents(const View &records, quint64 most, const Geometry &geometry, BlockMap *map);

/// Earlier states of the blocks of extent trees, from the log.
class TreeHistory
{
public:
    void add(const LoggedBuffer &item, quint64 lsn);
    /// The block as it was at `lsn`; `onDisk` is what is there now, and is used where it is of the
    /// same file.
    QByteArray blockAt(qint64 offset, quint64 lsn, const QByteArray &onDisk) const;

private:
    struct Piece
    {
        quint64 lsn = 0;
        int at = 0;
        QByteArray bytes;
    };

    QHash<qint64, std::vector<Piece>> m_blocks;
    qint64 m_bytes = 0;
};

/// Reads the block maps of inodes, existing ones and freed ones.
class ForkReader
{
public:
    ForkReader(const XfsVolume &volume, const TreeHistory *history)
        : m_volume(volume)
        , m_history(history)
    {}

    /// The map of inode `number` in the state `inode`; its number of extents is known.
    BlockMap read(quint64 number, const Inode &inode, const Geometry &geometry) const;
    /// What stands in the fork of a freed inode, whose counts are cleared.
    BlockMap readRemains(quint64 number, const Inode &inode, const Geometry &geometry) const;

private:
    struct Walk
    {
        quint64 number = 0;
        quint64 lsn = 0;
        bool takesRemains = false; ///< Also records behind the last one that a leaf counts.
        quint64 most = 0;          ///< Extents.
        int blocksLeft = 0;
    };

    void readTree(const Inode &inode, const Geometry &geometry, Walk walk, BlockMap *map) const;
    [[nodiscard]] bool readNode(quint64 block, int level, const Geometry &geometry, Walk *walk,
                                BlockMap *map) const;

    const XfsVolume &m_volume;
    const TreeHistory *m_history;
};

/// A file's bytes by its map; `size` in bytes.
FileContent contentOf(const BlockMap &map, qint64 size, const Geometry &geometry);
/// The size of a file that ends where the rest of its last block is zero.
qint64 estimatedSize(const BlockMap &map, const MediaReader &media, const Geometry &geometry);

} // namespace services::recoveryd::xfs
