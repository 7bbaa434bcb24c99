#pragma once

#include "recoveryd/ext/undelete/tree.h"
#include "recoveryd/scan/scanner.h"

namespace services::recoveryd::ext {

/// Finds the files of an earlier file system by the inodes that a new format has left in the tables
/// and by directory blocks in free space. The root directory is overwritten, so that no path is
/// known to its beginning. One thread.
class FormerFiles
{
public:
    explicit FormerFiles(const Layout &layout);

    /// Takes an inode that no bitmap of the present file system has in use.
    void takeInode(quint32 number, const Inode &inode, const QByteArray &block, quint32 slot);
    bool isEmpty() const { return m_numbers.empty(); }
    /// Takes a block from free space that may be one of a directory.
    void takeBlock(qint64 block, const DirectoryBlock &parsed, const QByteArray &bytes);

    /// `formatMs`: when the present file system was made. False if the observer ended it.
    [[nodiscard]] bool report(qint64 formatMs, ScanObserver &observer);

private:
    struct Found
    {
        quint32 number = 0;
        quint32 seed = 0; ///< Of the file system's checksums as this inode tells it.
    };

    void findSeed();
    quint32 seedOf(quint32 number, quint32 generation) const;
    bool readInode(quint32 number, Inode *inode, QByteArray *block, quint32 *slot) const;
    void takeDirectories();
    Finding describe(quint32 number, const Inode &inode, const QByteArray &block, quint32 slot);

    const Layout &m_layout;
    Blocks m_blocks;
    MapReader m_maps;
    NameBook m_names;
    InodeHistory m_noHistory;
    Tree m_tree;
    std::vector<Found> m_numbers;
    quint32 m_seed = 0; ///< 0: the earlier file system kept no checksums.
};

} // namespace services::recoveryd::ext
