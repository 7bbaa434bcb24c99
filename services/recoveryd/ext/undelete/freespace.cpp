#include "recoveryd/ext/undelete/freespace.h"

#include <algorithm>

namespace services::recoveryd::ext {

namespace {

/// Blocks that the layout itself takes, ascending: in groups whose bitmap was never written nothing
/// else tells of them.
Ranges layoutUse(const Layout &layout)
{
    const ExtSuperblock &super = layout.super();
    const qint64 perBlock = super.blockSize / super.descriptorSize;
    const qint64 tableBlocks = (qint64(layout.groups().size()) + perBlock - 1) / perBlock;
    const bool hasMetaGroups = super.hasIncompatible(extfeature::kMetaGroups);
    Ranges used;
    for (size_t i = 0; i < layout.groups().size(); ++i) {
        const Group &group = layout.groups()[i];
        used.append({group.blockBitmap, 1});
        used.append({group.inodeBitmap, 1});
        used.append({group.inodeTable, super.inodeTableBlocks()});
        const qint64 inMetaGroup = qint64(i) % perBlock;
        if (hasMetaGroups && qint64(i) / perBlock >= super.firstMetaGroup) {
            const bool hasTable =
                inMetaGroup == 0 || inMetaGroup == 1 || inMetaGroup == perBlock - 1;
            used.append({super.groupStart(qint64(i)), super.holdsBackup(qint64(i)) + hasTable});
        } else if (super.holdsBackup(qint64(i))) {
            const qint64 inTable =
                hasMetaGroups ? qMin(tableBlocks, qint64(super.firstMetaGroup)) : tableBlocks;
            used.append({super.groupStart(qint64(i)), 1 + inTable + super.reservedTableBlocks});
        }
    }
    return joinedRanges(used);
}

/// Free blocks of one group that has a bitmap.
Ranges freeOfBitmap(const ExtSuperblock &super, qint64 first, qint64 count,
                    const QByteArray &bitmap)
{
    Ranges free;
    const qint64 clusters = (count + super.clusterBlocks - 1) / super.clusterBlocks;
    for (qint64 bit = 0; bit < clusters && bit / 8 < bitmap.size(); ++bit) {
        const quint8 byte = quint8(bitmap.at(int(bit / 8)));
        if (bit % 8 == 0 && byte == 0xFF) {
            bit += 7;
            continue;
        }
        if ((byte >> (bit % 8)) & 1)
            continue;
        const qint64 start = first + bit * super.clusterBlocks;
        const qint64 length = qMin(super.clusterBlocks, first + count - start);
        if (!free.isEmpty() && free.last().end() == start)
            free.last().length += length;
        else
            free.append({start, length});
    }
    return free;
}

/// Zeros are also what is read where a medium fails, or was wiped.
bool isTrustworthy(const Layout &layout, const Group &group, const QByteArray &bitmap)
{
    const qint64 size = layout.blockSize();
    const bool isZero = bitmap.count('\0') == bitmap.size();
    const qint64 clusters = layout.super().blocksPerGroup / layout.super().clusterBlocks;
    return group.blockBitmap > 0 && !layout.media().hasBadBytes({group.blockBitmap * size, size}) &&
           (!isZero || group.freeClusters == clusters);
}

} // namespace

bool readFreeSpace(const Blocks &blocks, Ranges *ranges, QString *error)
{
    const Layout &layout = blocks.layout();
    const ExtSuperblock &super = layout.super();
    Ranges free;
    Ranges unwritten;
    qint64 damaged = 0;
    for (size_t i = 0; i < layout.groups().size(); ++i) {
        const Group &group = layout.groups()[i];
        const qint64 first = super.groupStart(qint64(i));
        const qint64 count = qMin(super.blocksPerGroup, super.blockCount - first);
        if (group.isBlockBitmapUnwritten) {
            unwritten.append({first, count});
            continue;
        }
        const QByteArray bitmap = blocks.current(group.blockBitmap);
        if (isTrustworthy(layout, group, bitmap))
            free += freeOfBitmap(super, first, count, bitmap);
        else
            ++damaged;
    }
    free += subtracted(unwritten, layoutUse(layout));
    if (damaged == qint64(layout.groups().size())) {
        if (error)
            *error = QStringLiteral("ext 块位图已损坏");
        return false;
    }
    ranges->clear();
    for (const Range &range : joinedRanges(free)) {
        const qint64 start = range.start * super.blockSize;
        const qint64 end = qMin(range.end() * super.blockSize, layout.media().size());
        if (start < end)
            ranges->append({start, end - start});
    }
    return true;
}

} // namespace services::recoveryd::ext
