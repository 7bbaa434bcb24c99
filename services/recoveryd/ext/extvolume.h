#pragma once

#include "recoveryd/devices/image.h"
#include "recoveryd/ext/extsuperblock.h"

namespace services {
namespace recoveryd {

/// A group descriptor; places in blocks.
struct ExtGroup
{
    qint64 blockBitmap = 0;
    qint64 inodeBitmap = 0;
    qint64 inodeTable = 0;
    /// The block bitmap was never written: only the group's own tables are in use.
    bool isBitmapUnwritten = false;
};

/// Reads an ext2/3/4 file system that nothing else writes. Everything that the disk says is checked
/// against the volume's bounds.
class ExtVolume
{
public:
    [[nodiscard]] bool open(const Volume &volume, QString *error);

    const Volume &volume() const { return m_volume; }
    const ExtSuperblock &superblock() const { return m_super; }
    int groupCount() const { return m_groupCount; }
    [[nodiscard]] bool readGroup(int index, ExtGroup *group, QString *error) const;
    /// Empty on failure.
    QByteArray readBlock(qint64 block, QString *error) const;
    /// The raw inode; empty on failure.
    QByteArray readInode(quint32 number, QString *error) const;

private:
    Volume m_volume;
    ExtSuperblock m_super;
    int m_groupCount = 0;
};

} // namespace recoveryd
} // namespace services
