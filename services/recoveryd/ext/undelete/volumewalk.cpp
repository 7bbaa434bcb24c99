#include "recoveryd/ext/undelete/volumewalk.h"

#include "recoveryd/devices/bytes.h"

#include <algorithm>

namespace services::recoveryd::ext {

namespace {

constexpr qint64 kWindow = 1 << 20;
constexpr qint64 kProbe = 64 * 1024; ///< Of a table without an inode in use.
constexpr qint64 kMaxGap = 64 * 1024;
constexpr qint64 kMaxDirectoryRun = 32768; ///< The longest that is written in one piece.
constexpr size_t kMaxPending = 4 * 1000 * 1000;

} // namespace

qint64 VolumeWalk::blocksToRead(quint32 group) const
{
    const Layout &layout = m_blocks.layout();
    const Group &found = layout.groups()[group];
    // What the kernel has zeroed holds nothing behind the inodes that were ever in use.
    if (!found.isInodeTableZeroed || !found.isSure)
        return layout.super().inodeTableBlocks();
    return (qint64(m_use.usedCount(group)) * layout.super().inodeSize + layout.blockSize() - 1) /
           layout.blockSize();
}

qint64 VolumeWalk::tableBytes(bool isThorough) const
{
    const Layout &layout = m_blocks.layout();
    qint64 bytes = 0;
    for (quint32 group = 0; group < layout.groups().size(); ++group) {
        const qint64 all = blocksToRead(group) * layout.blockSize();
        bytes += isThorough || m_use.usedCount(group) > 0 ? all : qMin(all, kProbe);
    }
    return bytes;
}

bool VolumeWalk::visitInodes(bool isThorough, const InodeVisit &visit, const GoesOn &goesOn)
{
    m_done = 0;
    for (quint32 group = 0; group < m_blocks.layout().groups().size(); ++group)
        if (!visitTable(group, isThorough, visit, goesOn))
            return false;
    return true;
}

bool VolumeWalk::visitTable(quint32 group, bool isThorough, const InodeVisit &visit,
                            const GoesOn &goesOn)
{
    const Layout &layout = m_blocks.layout();
    const qint64 size = layout.blockSize();
    const qint64 table = layout.groups()[group].inodeTable;
    // A damaged descriptor may claim more tables than the medium has room for.
    const bool isReadable =
        table > 0 && table < layout.media().size() / size && m_done <= layout.media().size();
    const qint64 blocks = isReadable ? blocksToRead(group) : 0;
    const qint64 used = m_use.usedCount(group);
    qint64 found = 0;
    for (qint64 at = 0; at < blocks;) {
        const bool isBehind = at * layout.inodesPerBlock() >= used;
        if (isBehind && !isThorough && at >= kProbe / size && found == 0)
            break;
        const qint64 step = qMin(blocks - at, (isBehind && found == 0 ? kProbe : kWindow) / size);
        if (!goesOn(m_done))
            return false;
        const QByteArray window =
            layout.media().read((table + at) * size, qMax(qint64(1), step) * size);
        if (isBehind)
            found = 0;
        for (qint64 i = 0; (i + 1) * size <= window.size(); ++i) {
            const bool isPending =
                m_blocks.journal() && m_blocks.journal()->pending(table + at + i);
            const QByteArray bytes =
                isPending ? m_blocks.current(table + at + i)
                          : QByteArray::fromRawData(window.constData() + i * size, int(size));
            const quint32 first = quint32(group * layout.super().inodesPerGroup +
                                          (at + i) * layout.inodesPerBlock() + 1);
            for (quint32 slot = 0; slot < layout.inodesPerBlock(); ++slot) {
                Inode inode;
                if (!parseInode(layout, bytes, slot, &inode))
                    continue;
                ++found;
                if (!visit(first + slot, inode, m_use.isInUse(first + slot), bytes, slot))
                    return false;
            }
        }
        m_done += window.size();
        at += qMax(qint64(1), step);
    }
    return true;
}

void VolumeWalk::loadDirectory(quint32 number)
{
    const Layout &layout = m_blocks.layout();
    const qint64 table = layout.blockOfInode(number);
    if (table == 0 || !m_loaded.insert(number).second)
        return;
    const QByteArray block = m_blocks.current(table);
    const quint32 slot = (number - 1) % layout.super().inodesPerGroup % layout.inodesPerBlock();
    Inode inode;
    if (!parseInode(layout, block, slot, &inode) || !inode.isDirectory() || inode.links == 0 ||
        !m_use.isInUse(number))
        return;
    if (inode.is(Inode::Encrypted))
        m_tree->addEncrypted(number);
    if (inode.is(Inode::InlineData)) {
        takeInline(number, inlineDataOf(layout, block, slot));
        return;
    }
    const BlockMap map = m_maps->read(inode, kNow, layout.inodeSeed(number, inode.generation));
    for (const Run &run : map.runs)
        for (qint64 i = 0; i < run.count; ++i)
            takeBlock(number, run.block + i, m_blocks.current(run.block + i));
}

void VolumeWalk::takeRemains(quint32 number, const BlockMap &map, quint32 seed, Order order)
{
    for (const Run &run : map.runs)
        for (qint64 i = 0; i < qMin(run.count, kMaxDirectoryRun); ++i) {
            const QByteArray bytes = m_blocks.layout().readBlock(run.block + i);
            DirectoryBlock parsed;
            if (!parseDirectoryBlock(m_blocks.layout(), bytes, &parsed) ||
                (parsed.self != 0 ? parsed.self != number : run.logical + i == 0) ||
                (parsed.seed != 0 && parsed.seed != seed))
                continue;
            const quint32 owner =
                m_names->addOwner({run.block + i, number, parsed.parent, parsed.seed});
            visitEntries(m_blocks.layout(), bytes,
                         [&](const Entry &entry) { m_names->add(owner, entry, order); });
        }
}

void VolumeWalk::addDirectory(quint32 number, const Inode &inode, const QByteArray &block,
                              quint32 slot)
{
    const quint32 seed = m_blocks.layout().inodeSeed(number, inode.generation);
    m_tree->addSeed(seed, number);
    if (inode.is(Inode::Encrypted))
        m_tree->addEncrypted(number);
    if (inode.is(Inode::InlineData)) {
        if (m_loaded.insert(number).second)
            takeInline(number, inlineDataOf(m_blocks.layout(), block, slot));
        return;
    }
    const BlockMap map = m_maps->read(inode, kNow, seed);
    m_tree->addBlocks(number, map, kNow - 1, kNow);
    if (m_loaded.count(number) == 0 && m_pending.size() + map.runs.size() < kMaxPending)
        for (const Run &run : map.runs)
            m_pending.push_back({run.block, number, quint32(run.count)});
}

bool VolumeWalk::loadDirectories(const GoesOn &goesOn)
{
    const qint64 size = m_blocks.layout().blockSize();
    std::sort(m_pending.begin(), m_pending.end(),
              [](const Pending &a, const Pending &b) { return a.block < b.block; });
    for (size_t i = 0; i < m_pending.size();) {
        // Neighbours in one read.
        const qint64 first = m_pending[i].block;
        size_t end = i;
        qint64 blocks = 0;
        for (; end < m_pending.size(); ++end) {
            const qint64 behind = m_pending[end].block + m_pending[end].count - first;
            if (end > i &&
                (m_pending[end].block - first - blocks > kMaxGap / size || behind > kWindow / size))
                break;
            blocks = qMax(blocks, behind);
        }
        if (!goesOn(m_done))
            return false;
        const QByteArray window =
            m_blocks.layout().media().read(first * size, qMin(blocks * size, kWindow));
        for (; i < end; ++i) {
            const Pending &directory = m_pending[i];
            for (qint64 k = 0; k < directory.count; ++k) {
                const qint64 block = directory.block + k;
                const qint64 at = (block - first) * size;
                const bool isPending = m_blocks.journal() && m_blocks.journal()->pending(block);
                takeBlock(directory.number, block,
                          isPending || at + size > window.size() ? m_blocks.current(block)
                                                                 : window.mid(int(at), int(size)));
            }
        }
        m_done += window.size();
    }
    for (const Pending &directory : m_pending)
        m_loaded.insert(directory.number);
    m_pending.clear();
    return true;
}

void VolumeWalk::takeBlock(quint32 number, qint64 block, const QByteArray &bytes)
{
    DirectoryBlock parsed;
    if (!parseDirectoryBlock(m_blocks.layout(), bytes, &parsed))
        return;
    if (parsed.self != 0 && parsed.self != number)
        return;
    const quint32 owner = m_names->addOwner({block, number, parsed.parent, parsed.seed});
    visitEntries(m_blocks.layout(), bytes, [&](const Entry &entry) { takeEntry(owner, entry); });
}

void VolumeWalk::takeEntry(quint32 owner, const Entry &entry)
{
    if (entry.isRemnant)
        m_names->add(owner, entry, kAnyTime);
    else if (!m_filter || m_filter(entry))
        m_names->add(owner, entry, kNow);
}

void VolumeWalk::takeInline(quint32 number, const QByteArray &data)
{
    const quint32 owner = m_names->addOwner({0, number, Fields(data).le32(0), 0});
    visitInlineEntries(m_blocks.layout(), data,
                       [&](const Entry &entry) { takeEntry(owner, entry); });
}

} // namespace services::recoveryd::ext
