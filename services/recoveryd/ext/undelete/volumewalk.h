#pragma once

#include "recoveryd/ext/undelete/inodeuse.h"
#include "recoveryd/ext/undelete/tree.h"

#include <functional>

namespace services::recoveryd::ext {

/// Reads all inodes of a volume and the blocks of its directories, in the order of the medium. One
/// thread.
class VolumeWalk
{
public:
    /// Asked between pieces, with the bytes read so far; false ends the walk.
    using GoesOn = std::function<bool(qint64 done)>;
    /// Takes an inode with the block of the table that holds it. False ends the walk.
    using InodeVisit = std::function<bool(quint32 number, const Inode &inode, bool isInUse,
                                          const QByteArray &block, quint32 slot)>;
    /// Whether the names of an inode are of interest; asked for entries of the volume as it is.
    using NameFilter = std::function<bool(const Entry &entry)>;

    VolumeWalk(const Blocks &blocks, NameBook *names, Tree *tree, MapReader *maps)
        : m_blocks(blocks)
        , m_names(names)
        , m_tree(tree)
        , m_maps(maps)
        , m_use(blocks)
    {}

    void setFilter(const NameFilter &filter) { m_filter = filter; }

    /// Bytes of the inode tables that visitInodes() reads.
    qint64 tableBytes(bool isThorough) const;
    /// Visits the inodes of all groups. Where no inode was ever in use only the beginning of a
    /// table is read, unless it shows an older file system or `isThorough` is set.
    [[nodiscard]] bool visitInodes(bool isThorough, const InodeVisit &visit, const GoesOn &goesOn);

    /// Takes the names of one directory that the volume has now.
    void loadDirectory(quint32 number);
    /// Takes what the volume still has of the names in a removed directory. `seed`: the start value
    /// of its checksums; `order`: the last time at which it is known to have been there.
    void takeRemains(quint32 number, const BlockMap &map, quint32 seed, Order order);
    /// Remembers a directory for loadDirectories().
    void addDirectory(quint32 number, const Inode &inode, const QByteArray &block, quint32 slot);
    /// Takes the names of all remembered directories that were not loaded yet.
    [[nodiscard]] bool loadDirectories(const GoesOn &goesOn);

private:
    struct Pending
    {
        qint64 block = 0;
        quint32 number = 0;
        quint32 count = 0;
    };

    bool visitTable(quint32 group, bool isThorough, const InodeVisit &visit, const GoesOn &goesOn);
    qint64 blocksToRead(quint32 group) const;
    void takeBlock(quint32 number, qint64 block, const QByteArray &bytes);
    void takeEntry(quint32 owner, const Entry &entry);
    void takeInline(quint32 number, const QByteArray &data);

    const Blocks &m_blocks;
    NameBook *m_names;
    Tree *m_tree;
    MapReader *m_maps;
    InodeUse m_use;
    NameFilter m_filter;
    std::vector<Pending> m_pending;
    std::unordered_set<quint32> m_loaded;
    qint64 m_done = 0;
};

} // namespace services::recoveryd::ext
