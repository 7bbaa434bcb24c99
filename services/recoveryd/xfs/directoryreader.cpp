#include "recoveryd/xfs/directoryreader.h"

namespace services::recoveryd::xfs {

namespace {

/// Where the hash tables of a directory begin, in bytes of its file; entries are before it.
constexpr quint64 kTables = 32ULL << 30;

quint64 known(quint64 lsn)
{
    return lsn == 0 ? kEarliest : lsn;
}

} // namespace

DirectoryReader::DirectoryReader(const XfsVolume &volume, const Geometry &geometry,
                                 const TreeHistory *trees, NameBook &names)
    : m_volume(volume)
    , m_geometry(geometry)
    , m_forks(volume, trees)
    , m_names(names)
{}

void DirectoryReader::readExisting(quint64 number, const Inode &inode)
{
    m_names.setExisting(number);
    if (inode.format == ForkFormat::Local)
        readShort(number, View(inode.fork), inode.size, kNow, known(inode.lsn));
    else
        readBlocks(number, m_forks.read(number, inode, m_geometry), true);
}

void DirectoryReader::readGone(quint64 number, const Inode &inode)
{
    if (inode.isDirectory() && inode.format == ForkFormat::Local)
        readShort(number, View(inode.fork), inode.size, known(inode.lsn), known(inode.lsn));
    else if (inode.isDirectory())
        readBlocks(number, m_forks.read(number, inode, m_geometry), false);
    else if (m_forks.readRemains(number, inode, m_geometry).isComplete)
        readBlocks(number, m_forks.readRemains(number, inode, m_geometry), false);
    else
        readFreedShort(number, inode);
}

/// As a directory is emptied and freed at once, what it held may never be overwritten in its inode.
void DirectoryReader::readFreedShort(quint64 number, const Inode &inode)
{
    const View fork(inode.fork);
    const quint64 size = quint64(fork.size());
    if (fork.u8(1) > fork.u8(0) || quint64(fork.u8(0)) * 8 > size)
        return;
    forEachShortEntry(fork, size, m_geometry, [&](DirectoryEntry entry) {
        entry.isFreed = true;
        m_names.add(number, entry, known(inode.lsn));
    });
}

void DirectoryReader::readLogged(quint64 number, const Inode &inode)
{
    if (!inode.isDirectory() || !inode.hasFork)
        return;
    if (inode.format == ForkFormat::Local)
        readShort(number, View(inode.fork), inode.size, known(inode.lsn), known(inode.lsn));
    else if (!m_geometry.isV5 && inode.format == ForkFormat::Extents)
        setOwners(number, m_forks.read(number, inode, m_geometry));
}

void DirectoryReader::setOwners(quint64 number, const BlockMap &map)
{
    constexpr quint32 kMostBlocks = 65536;
    for (const Mapped &mapped : map.extents)
        for (quint32 i = 0; i < qMin(mapped.count, kMostBlocks); ++i)
            m_names.setOwner(m_geometry.offsetOfBlock(mapped.block + i), number);
}

void DirectoryReader::readShort(quint64 number, const View &fork, quint64 size, quint64 live,
                                quint64 freed)
{
    forEachShortEntry(fork, size, m_geometry, [&](const DirectoryEntry &entry) {
        if (entry.isFreed || !m_isWanted || live != kNow || m_isWanted(entry))
            m_names.add(number, entry, entry.isFreed ? freed : live);
    });
}

void DirectoryReader::addEntries(quint64 directory, const View &stretch, int at, quint64 live,
                                 quint64 freed)
{
    forEachEntry(stretch, at, m_geometry, [&](const DirectoryEntry &entry) {
        if (entry.isFreed || !m_isWanted || live != kNow || m_isWanted(entry))
            m_names.add(directory, entry, entry.isFreed ? freed : live);
    });
}

void DirectoryReader::readBlocks(quint64 number, const BlockMap &map, bool exists)
{
    const quint32 step = quint32(m_geometry.directoryBlockSize) / m_geometry.blockSize;
    QByteArray block;
    qint64 offset = 0;
    for (const Mapped &mapped : map.extents) {
        for (quint32 i = 0; i < mapped.count && !mapped.isUnwritten; ++i) {
            const quint64 logical = mapped.logical + i;
            if (logical * m_geometry.blockSize >= kTables)
                return;
            // A block of entries may be of several blocks, which need not lie together.
            const qint64 at = m_geometry.offsetOfBlock(mapped.block + i);
            if (logical % step == 0) {
                block.clear();
                offset = at;
            }
            block += m_volume.read(at, int(m_geometry.blockSize));
            if (block.size() != m_geometry.directoryBlockSize)
                continue;
            const DirectoryHead head = directoryHead(View(block));
            const bool isOwn =
                head.size > 0 &&
                (!head.isV5 || (head.owner == number && head.uuid == m_geometry.uuid));
            if (isOwn && !head.isV5)
                m_names.setOwner(offset, number);
            if (isOwn)
                addEntries(number, View(block), 0, exists ? kNow : known(head.lsn),
                           head.isV5 ? known(head.lsn) : kNow);
            block.clear();
        }
    }
}

void DirectoryReader::readBlock(qint64 offset, const QByteArray &block)
{
    const View view(block);
    const DirectoryHead head = directoryHead(view);
    quint64 owner = head.isV5 ? head.owner : NameBook::unknownOwner(offset);
    // Before version 5 only the entry "." of the first block tells.
    if (!head.isV5 && view.u8(head.size + 8) == 1 && view.u8(head.size + 9) == '.')
        owner = view.u64(head.size);
    addEntries(owner, view, 0, known(head.lsn), head.isV5 ? known(head.lsn) : kNow);
}

void DirectoryReader::readPieces(const LoggedBuffer &item, quint64 lsn)
{
    if (item.pieces.isEmpty() || item.holdsInodes || item.isCancelled)
        return;
    const LoggedBuffer::Piece &first = item.pieces.first();
    const DirectoryHead head = first.at == 0 ? directoryHead(View(first.bytes)) : DirectoryHead();
    if (head.size > 0)
        m_logOwners.insert(item.offset,
                           head.isV5 ? head.owner : NameBook::unknownOwner(item.offset));
    else if (first.at == 0 || (!item.holdsEntries && !m_logOwners.contains(item.offset)))
        return;
    const quint64 owner = m_logOwners.value(item.offset, NameBook::unknownOwner(item.offset));
    for (const LoggedBuffer::Piece &piece : item.pieces)
        addEntries(owner, View(piece.bytes), piece.at, known(lsn), known(lsn));
}

} // namespace services::recoveryd::xfs
