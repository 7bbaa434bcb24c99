#pragma once

#include "recoveryd/devices/mediareader.h"
#include "recoveryd/ext/extsuperblock.h"

#include <vector>

namespace services::recoveryd::ext {

/// A group descriptor; places in blocks, 0 where they are not known.
struct Group
{
    qint64 blockBitmap = 0;
    qint64 inodeBitmap = 0;
    qint64 inodeTable = 0;
    quint32 unusedInodes = 0; ///< At the end of the table.
    qint64 freeClusters = -1; ///< -1 if it is not known.
    bool isBlockBitmapUnwritten = false;
    bool isInodeTableUnwritten = false; ///< No inode of it is in use.
    bool isInodeTableZeroed = false;    ///< It holds nothing older either.
    bool isSure = false;                ///< Its own checksum fits, or it is plausible and has none.
};

/// A block that holds a copy of the superblock, and the volume that it describes.
struct SuperblockPlace
{
    ExtSuperblock super;
    qint64 start = 0;  ///< Byte of the medium at which the volume begins; may be negative.
    qint64 copyAt = 0; ///< Byte of this copy.
    bool isPrimary = true;
};

/// Reads the superblock copy at a byte of the medium; false if there is none.
[[nodiscard]] bool readSuperblockAt(const MediaReader &media, qint64 offset,
                                    SuperblockPlace *place);
/// The same with the copy's bytes at hand.
[[nodiscard]] bool parseSuperblockAt(const QByteArray &bytes, qint64 offset,
                                     SuperblockPlace *place);
/// Whether the copy may be the journal's of a volume that begins with the medium: a volume of one
/// group has no backups. Only the volume's root directory proves it.
bool mayBeJournalled(const MediaReader &media, const SuperblockPlace &place);

/// Where the parts of an ext2/3/4 volume are, from its superblock and group descriptors or, where
/// these are damaged, from their backups. Sources: the kernel's Documentation/filesystems/ext4
/// (super, group_descr, blockgroup).
class Layout
{
public:
    /// The media must outlive the layout.
    explicit Layout(const MediaReader &media)
        : m_media(media)
    {}

    /// Finds a superblock and the descriptors. False if no usable copy is left.
    [[nodiscard]] bool open(QString *error);
    /// The same with a superblock that is known.
    [[nodiscard]] bool openAs(const ExtSuperblock &super, QString *error);

    const MediaReader &media() const { return m_media; }
    const ExtSuperblock &super() const { return m_super; }
    qint64 blockSize() const { return m_super.blockSize; }
    const std::vector<Group> &groups() const { return m_groups; }
    /// The superblock is not where it belongs.
    bool isHeadDamaged() const { return m_isHeadDamaged; }
    /// Replaces a block of the descriptors by a newer version of it.
    void updateDescriptors(qint64 block, const QByteArray &bytes);

    bool isDataBlock(qint64 block) const
    {
        return block > m_super.firstDataBlock && block < m_super.blockCount;
    }
    /// Exactly a block; zeros where it cannot be read.
    QByteArray readBlock(qint64 block) const;
    quint32 inodesPerBlock() const { return quint32(m_super.blockSize / m_super.inodeSize); }
    /// Inodes of the groups that are known; not more than fit on the medium.
    quint32 inodeLimit() const { return m_inodeLimit; }
    /// The block of the inode table that holds the inode; 0 if it is not known.
    qint64 blockOfInode(quint32 number) const;
    /// The first inode of a block of an inode table; 0 if the block is none.
    quint32 firstInodeOf(qint64 block) const;
    /// The start value of the checksums of what belongs to one inode.
    quint32 inodeSeed(quint32 number, quint32 generation) const;

private:
    bool findSuperblock(ExtSuperblock *super);
    bool sweepForSuperblock(ExtSuperblock *super) const;
    void readGroups();
    void parseDescriptors(qint64 index, const QByteArray &bytes, bool isPrimary);
    Group parseGroup(const QByteArray &bytes) const;
    bool hasRightChecksum(qint64 number, const QByteArray &bytes) const;
    bool isPlausible(const Group &group) const;
    qint64 descriptorsPerBlock() const { return m_super.blockSize / m_super.descriptorSize; }
    qint64 placeOfDescriptors(qint64 index, int copy) const;
    void indexTables();

    const MediaReader &m_media;
    ExtSuperblock m_super;
    bool m_isHeadDamaged = false;
    std::vector<Group> m_groups;
    std::vector<std::pair<qint64, quint32>> m_tables; ///< First block and group, ascending.
    quint32 m_inodeLimit = 0;
};

} // namespace services::recoveryd::ext
