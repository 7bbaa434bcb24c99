#include "recoveryd/xfs/findingmaker.h"

#include <limits>

namespace services::recoveryd::xfs {

namespace {

constexpr quint64 kMaxSize = quint64(1) << 60;

} // namespace

quint64 FindingMaker::recencyOf(const Inode &inode) const
{
    // Without sequence numbers on disk there are only times.
    const quint64 when = m_geometry.isV5 ? inode.lsn : quint64(qMax(qint64(0), inode.changedMs));
    return quint64(m_era) << 62 | (when & ((1ULL << 62) - 1));
}

/// The fork of a file that only its fixed fields are known of still stands on disk, if the inode
/// was freed last by this file's end.
void FindingMaker::completeFork(LostFile *lost) const
{
    const qint64 offset = m_geometry.offsetOfInode(lost->number);
    if (lost->inode.hasFork || offset < 0)
        return;
    const QByteArray bytes = m_volume.media().read(offset, m_geometry.inodeSize);
    Inode onDisk;
    if (!isGenuine(View(bytes), m_geometry.uuid, lost->number) || !parseInode(View(bytes), &onDisk))
        return;
    const quint32 generation = lost->inode.generation;
    const bool isOwn =
        onDisk.isFree() ? onDisk.generation == generation + 1
                        : onDisk.generation == generation && onDisk.extents == lost->inode.extents;
    if (!isOwn)
        return;
    lost->inode.fork = onDisk.fork;
    lost->inode.hasFork = true;
    // Where the pointers of a root stand depends on the room that it had.
    if (lost->inode.forkSize > 0)
        lost->inode.fork.truncate(lost->inode.forkSize);
}

/// Whether a map that was left of a freed inode leads to entries: its kind is cleared with it.
bool FindingMaker::isDirectory(quint64 number, const BlockMap &map) const
{
    if (map.extents.empty())
        return false;
    const QByteArray block = m_volume.read(m_geometry.offsetOfBlock(map.extents.front().block),
                                           int(m_geometry.blockSize));
    const DirectoryHead head = directoryHead(View(block));
    return head.size > 0 && (!head.isV5 || head.owner == number);
}

bool FindingMaker::isNew(const LostFile &lost, const FileContent &content)
{
    quint64 hash = lost.number * 0x9E3779B97F4A7C15ULL;
    for (quint64 part :
         {quint64(lost.inode.generation), quint64(content.size), quint64(content.extents.size()),
          quint64(content.extents.isEmpty() ? 0 : content.extents.first().physical),
          quint64(content.extents.isEmpty() ? 0 : content.extents.last().physical)})
        hash = (hash ^ part) * 0xD6E8FEB86659FD93ULL ^ hash >> 29;
    const int before = m_seen.size();
    m_seen.insert(hash);
    return m_seen.size() > before;
}

bool FindingMaker::make(LostFile lost, NameBook &names, bool isNumberInUse, Finding *finding)
{
    if (lost.inode.isSpecial || lost.inode.size > kMaxSize)
        return false;
    completeFork(&lost);
    const BlockMap map = lost.isSizeKnown
                             ? m_forks.read(lost.number, lost.inode, m_geometry)
                             : m_forks.readRemains(lost.number, lost.inode, m_geometry);
    if (!lost.isSizeKnown && isDirectory(lost.number, map))
        return false;
    const qint64 size = lost.isSizeKnown ? qint64(lost.inode.size)
                                         : estimatedSize(map, m_volume.media(), m_geometry);
    *finding = Finding();
    finding->content = contentOf(map, size, m_geometry);
    if (size <= 0 || finding->content.extents.isEmpty() || !isNew(lost, finding->content))
        return false;
    finding->source = !lost.isSizeKnown ? FindingSource::Hybrid
                      : lost.isFromLog  ? FindingSource::Journal
                                        : FindingSource::Metadata;
    finding->isSizeExact = lost.isSizeKnown;
    finding->isMapComplete = map.isComplete;
    finding->modifiedMs = lost.inode.modifiedMs;
    finding->deletedMs = lost.deletedMs;
    finding->recency = recencyOf(lost.inode);
    NameBook::Life life;
    life.number = lost.number;
    life.begin = lost.begin;
    life.end = lost.end;
    life.type = kTypeFile;
    life.isNumberInUse = isNumberInUse;
    // Without a name it is found all the same.
    return names.place(life, finding) || true;
}

bool FindingMaker::makeExisting(quint64 number, const Inode &inode, NameBook &names,
                                Finding *finding)
{
    if (!inode.isRegular() || inode.isSpecial || inode.size > kMaxSize ||
        m_geometry.ownInodes.contains(number))
        return false;
    const BlockMap map = m_forks.read(number, inode, m_geometry);
    *finding = Finding();
    finding->content = contentOf(map, qint64(inode.size), m_geometry);
    finding->isDeleted = false;
    finding->isMapComplete = map.isComplete;
    finding->modifiedMs = inode.modifiedMs;
    finding->recency = recencyOf(inode);
    NameBook::Life life;
    life.number = number;
    life.end = kNow;
    life.type = kTypeFile;
    life.isNumberInUse = true;
    return names.place(life, finding) || inode.size > 0;
}

} // namespace services::recoveryd::xfs
