#include "recoveryd/ext/extfreespace.h"

namespace services {
namespace recoveryd {

namespace {

/// Collects free blocks one by one, joining neighbours.
class RangeBuilder
{
public:
    RangeBuilder(qint64 blockSize, qint64 limit, Ranges *ranges)
        : m_blockSize(blockSize)
        , m_limit(limit)
        , m_ranges(ranges)
    {}

    void add(qint64 block)
    {
        const qint64 start = block * m_blockSize;
        const qint64 length = qMin(m_blockSize, m_limit - start);
        if (length <= 0)
            return;
        if (!m_ranges->isEmpty() && m_ranges->last().end() == start)
            m_ranges->last().length += length;
        else
            m_ranges->append({start, length});
    }

private:
    qint64 m_blockSize;
    qint64 m_limit;
    Ranges *m_ranges;
};

/// Of a group without a bitmap: what the layout itself takes.
class LayoutUse
{
public:
    LayoutUse(const ExtVolume &ext, int index, const ExtGroup &group)
        : m_group(group)
        , m_inodeBlocks((qint64(ext.superblock().inodesPerGroup) * ext.superblock().inodeSize +
                         ext.superblock().blockSize - 1) /
                        ext.superblock().blockSize)
    {
        const ExtSuperblock &super = ext.superblock();
        const qint64 tableBlocks =
            (qint64(ext.groupCount()) * super.descriptorSize + super.blockSize - 1) /
            super.blockSize;
        if (super.holdsBackup(index))
            m_backupBlocks = 1 + tableBlocks + super.reservedTableBlocks;
    }

    bool isTaken(qint64 block, qint64 withinGroup) const
    {
        return withinGroup < m_backupBlocks || block == m_group.blockBitmap ||
               block == m_group.inodeBitmap ||
               (block >= m_group.inodeTable && block < m_group.inodeTable + m_inodeBlocks);
    }

private:
    ExtGroup m_group;
    qint64 m_inodeBlocks;
    qint64 m_backupBlocks = 0;
};

} // namespace

bool readFreeRanges(const ExtVolume &ext, Ranges *ranges, QString *error)
{
    const ExtSuperblock &super = ext.superblock();
    ranges->clear();
    if (super.hasClusters()) {
        if (error)
            *error = QStringLiteral("不支持按簇分配的文件系统");
        return false;
    }
    RangeBuilder builder(super.blockSize, ext.volume().size(), ranges);
    for (int index = 0; index < ext.groupCount(); ++index) {
        const qint64 first = super.firstDataBlock + qint64(index) * super.blocksPerGroup;
        // Of a cut image only the groups that begin in it are asked.
        if (first >= ext.volume().size() / super.blockSize)
            break;
        ExtGroup group;
        if (!ext.readGroup(index, &group, error))
            return false;
        const qint64 count = qMin(super.blocksPerGroup, super.blockCount - first);
        QByteArray bitmap;
        if (!group.isBitmapUnwritten) {
            bitmap = ext.readBlock(group.blockBitmap, error);
            if (bitmap.isEmpty())
                return false;
        }
        const LayoutUse layout(ext, index, group);
        for (qint64 i = 0; i < count; ++i) {
            const bool isTaken = group.isBitmapUnwritten ? layout.isTaken(first + i, i)
                                                         : (bitmap.at(int(i / 8)) >> (i % 8)) & 1;
            if (!isTaken)
                builder.add(first + i);
        }
    }
    return true;
}

} // namespace recoveryd
} // namespace services
