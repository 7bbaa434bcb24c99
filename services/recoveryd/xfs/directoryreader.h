#pragma once

#include "recoveryd/xfs/fork.h"
#include "recoveryd/xfs/namebook.h"

#include <functional>

namespace services::recoveryd::xfs {

/// Puts what directories hold, and held, into a NameBook.
class DirectoryReader
{
public:
    /// Whether the name of an inode in use is of interest; names that are not are left out.
    using IsWanted = std::function<bool(const DirectoryEntry &entry)>;

    DirectoryReader(const XfsVolume &volume, const Geometry &geometry, const TreeHistory *trees,
                    NameBook &names);

    void setWanted(const IsWanted &isWanted) { m_isWanted = isWanted; }
    /// A directory that exists.
    void readExisting(quint64 number, const Inode &inode);
    /// One that does not any more, as its inode was when it did, or as freeing it has left it.
    void readGone(quint64 number, const Inode &inode);
    /// A directory in its inode, in a state that the log has.
    void readLogged(quint64 number, const Inode &inode);
    /// A block of entries in free space.
    void readBlock(qint64 offset, const QByteArray &block);
    /// A changed block of entries in the log.
    void readPieces(const LoggedBuffer &item, quint64 lsn);

private:
    void readFreedShort(quint64 number, const Inode &inode);
    void readShort(quint64 number, const View &fork, quint64 size, quint64 live, quint64 freed);
    void readBlocks(quint64 number, const BlockMap &map, bool exists);
    void addEntries(quint64 directory, const View &stretch, int at, quint64 live, quint64 freed);
    void setOwners(quint64 number, const BlockMap &map);

    const XfsVolume &m_volume;
    const Geometry &m_geometry;
    ForkReader m_forks;
    NameBook &m_names;
    IsWanted m_isWanted;
    QHash<qint64, quint64> m_logOwners; ///< By block of entries.
};

} // namespace services::recoveryd::xfs
