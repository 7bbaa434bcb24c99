#include "recoveryd/xfs/xfsscanner.h"

#include "recoveryd/xfs/blocksweep.h"
#include "recoveryd/xfs/freespace.h"
#include "recoveryd/xfs/logscan.h"

#include <algorithm>

namespace services::recoveryd::xfs {

namespace {

/// Bytes of free space that a quick scan looks through.
constexpr qint64 kQuickSweep = qint64(2) << 30;

bool contains(const Ranges &ranges, qint64 offset)
{
    const auto it =
        std::partition_point(ranges.begin(), ranges.end(),
                             [offset](const Range &range) { return range.end() <= offset; });
    return it != ranges.end() && it->start <= offset;
}

/// Keeps of a freed inode's fork what can be a list of extents or the root of a tree.
void shrinkFork(Inode *inode, const Geometry &geometry)
{
    BlockMap map;
    if (!readExtents(View(inode->fork), quint64(inode->fork.size() / 16), geometry, &map) &&
        !map.extents.empty())
        inode->fork.truncate(int(map.extents.size()) * 16);
}

} // namespace

XfsScanner::XfsScanner(const ScanContext &context)
    : m_context(context)
    , m_volume(*m_context.media)
{
    if (!m_volume.open())
        return;
    const Geometry &geometry = m_volume.geometry();
    m_names.setRoot(geometry.rootInode);
    m_walk = std::make_unique<InodeWalk>(m_volume);
    m_walk->readTrees();
    m_directories = std::make_unique<DirectoryReader>(m_volume, geometry, &m_trees, m_names);
    m_maker =
        std::make_unique<FindingMaker>(m_volume, geometry, &m_trees, FindingMaker::Era::Current);
    m_former = std::make_unique<FormerVolumes>(m_volume);
    m_sweep = rangesToSweep();
}

QString XfsScanner::phaseText() const
{
    return QStringLiteral("正在读取 XFS 日志和 inode");
}

qint64 XfsScanner::totalWork() const
{
    if (!m_volume.isOpen())
        return 0;
    return Log(m_volume.media(), m_volume.geometry()).size() + m_walk->totalWork() +
           totalLength(m_sweep);
}

Ranges XfsScanner::rangesToSweep()
{
    const Geometry &geometry = m_volume.geometry();
    const bool isQuick = !m_context.request.isDeep() && !m_context.listsExisting;
    m_isFreeKnown.assign(geometry.agCount, false);
    Ranges ranges;
    for (quint32 ag = 0; ag < geometry.agCount; ++ag) {
        Ranges free;
        m_isFreeKnown[ag] = freeOfGroup(m_volume, ag, &free);
        m_free += free;
        const qint64 start = geometry.agStart(ag);
        if (!m_isFreeKnown[ag] || !m_walk->isGroupKnown(ag))
            free = {{start, qint64(geometry.blocksOf(ag)) * geometry.blockSize}};
        qint64 left = isQuick && m_walk->isGroupKnown(ag)
                          ? kQuickSweep / geometry.agCount / geometry.blockSize * geometry.blockSize
                          : geometry.size();
        for (const Range &range : qAsConst(free)) {
            const qint64 most = qMin(left, m_volume.media().size() - range.start);
            if (most <= 0)
                break;
            ranges.append({range.start, qMin(range.length, most)});
            left -= ranges.last().length;
        }
    }
    return ranges;
}

bool XfsScanner::scan(ScanObserver &observer, QString *error)
{
    if (!m_volume.isOpen()) {
        if (error)
            *error = QStringLiteral("没有找到完好的 XFS 超级块");
        return false;
    }
    // A stop is no error, and the medium's read errors are told by the reader.
    return scanAll(observer) || true;
}

bool XfsScanner::scanAll(ScanObserver &observer)
{
    return readLog(observer) && walkInodes(observer) && visitKnownPlaces(observer) &&
           report(observer) && sweep(observer) && report(observer) && reportExisting(observer) &&
           m_former->report(observer);
}

bool XfsScanner::readLog(ScanObserver &observer)
{
    const bool isDone =
        scanLog(m_volume, {m_history, m_trees, *m_directories}, [&observer](qint64 done) {
            observer.advanced(done);
            return observer.mayGoOn();
        });
    m_done = Log(m_volume.media(), m_volume.geometry()).size();
    m_logNumbers = m_history.numbers();
    return isDone;
}

bool XfsScanner::walkInodes(ScanObserver &observer)
{
    // On a volume that works, the names of files in use matter only where their earlier contents
    // are found.
    if (!m_context.listsExisting)
        m_directories->setWanted([this](const DirectoryEntry &entry) {
            return entry.type != kTypeFile ||
                   std::binary_search(m_logNumbers.begin(), m_logNumbers.end(), entry.child);
        });
    const qint64 before = m_done;
    const bool isDone = m_walk->run(
        [this](quint64 number, const View &bytes, bool isAllocated) {
            takeInode(number, bytes, isAllocated);
            return true;
        },
        [&](qint64 done) {
            observer.advanced(before + done);
            return observer.mayGoOn();
        });
    m_done += m_walk->totalWork();
    return isDone;
}

Inode XfsScanner::currentState(quint64 number, const Inode &onDisk)
{
    const Inode *const logged = m_history.now(number);
    if (!logged)
        return onDisk;
    const bool isLogNewer = m_volume.geometry().isV5
                                ? logged->lsn > onDisk.lsn
                                : !m_volume.isLogClean() && logged->lsn >= m_volume.logTail();
    if (isLogNewer) {
        Inode state = *logged;
        if (!state.hasFork && state.generation == onDisk.generation) {
            state.fork = onDisk.fork;
            state.hasFork = true;
        }
        return state;
    }
    m_history.add(number, onDisk, false);
    return onDisk;
}

bool XfsScanner::stateOf(quint64 number, const View &bytes, Inode *onDisk, Inode *state)
{
    if (isGenuine(bytes, m_volume.geometry().uuid, number) && parseInode(bytes, onDisk)) {
        *state = currentState(number, *onDisk);
        return true;
    }
    // A crash may come before a new block of inodes is first written.
    const Inode *const logged = m_history.now(number);
    if (logged)
        *state = *logged;
    return logged != nullptr;
}

void XfsScanner::takeInode(quint64 number, const View &bytes, bool isAllocated)
{
    Inode onDisk;
    Inode state;
    if (!stateOf(number, bytes, &onDisk, &state))
        return;
    if (isAllocated && !state.isFree())
        takeInUse(number, state);
    else if (!state.isFree())
        m_history.loseNow(number);
    if (!isAllocated && onDisk.hasFork)
        takeFreed(number, onDisk);
}

void XfsScanner::takeInUse(quint64 number, const Inode &inode)
{
    if (inode.isDirectory() && !inode.isSpecial) {
        m_directories->readExisting(number, inode);
    } else if (inode.isRegular() && inode.links == 0 && inode.size > 0) {
        // Deleted while it was open, and then the machine went down.
        LostFile lost;
        lost.number = number;
        lost.inode = inode;
        lost.end = inode.lsn;
        lost.deletedMs = inode.changedMs;
        m_history.lose(lost);
    }
}

void XfsScanner::takeFreed(quint64 number, const Inode &onDisk)
{
    if (!onDisk.isFree()) {
        takeStray(number, onDisk, true);
        return;
    }
    m_directories->readGone(number, onDisk);
    // Freeing has counted the generation up.
    if (m_history.hasLost(number, onDisk.generation - 1))
        return;
    LostFile lost;
    lost.number = number;
    lost.inode = onDisk;
    shrinkFork(&lost.inode, m_volume.geometry());
    lost.inode.generation = onDisk.generation - 1;
    lost.end = onDisk.lsn;
    lost.deletedMs = onDisk.changedMs;
    lost.isSizeKnown = false;
    m_history.lose(lost);
}

bool XfsScanner::isInFreeSpace(qint64 offset) const
{
    return contains(m_free, offset);
}

/// An inode outside of all chunks, or one whose chunk calls it free: as a chunk is given up, its
/// inodes stay on disk as they were before they were freed.
void XfsScanner::takeStray(quint64 number, const Inode &inode, bool isInFreeSpace)
{
    const Inode *const logged = m_history.now(number);
    const bool isEnded = logged && logged->isFree();
    if (!isInFreeSpace && !isEnded && inode.links > 0) {
        if (inode.isDirectory())
            m_directories->readExisting(number, inode);
        LostFile existing;
        existing.number = number;
        existing.inode = inode;
        if (inode.isRegular() && m_context.listsExisting)
            m_stray.push_back(existing);
        return;
    }
    if (inode.isDirectory())
        m_directories->readGone(number, inode);
    if (!inode.isRegular() || inode.size == 0 || m_history.hasLost(number, inode.generation))
        return;
    LostFile lost;
    lost.number = number;
    lost.inode = inode;
    lost.end = isEnded ? logged->lsn : 0;
    if (isEnded)
        lost.deletedMs = logged->changedMs;
    m_history.lose(lost);
}

void XfsScanner::takeInodeBlock(qint64 offset, const QByteArray &block)
{
    const Geometry &geometry = m_volume.geometry();
    const int size = int(geometry.inodeSize);
    if (m_walk->isChunkKnown(geometry.inodeAt(offset)) || m_visited.contains(offset))
        return;
    m_visited.insert(offset);
    const bool isFree = isInFreeSpace(offset);
    for (int at = 0; at + size <= block.size(); at += size) {
        const View view(block.constData() + at, size);
        const quint64 number = geometry.inodeAt(offset + at);
        Inode inode;
        if (!isGenuine(view, geometry.uuid, number)) {
            m_former->addInode(offset + at, view);
        } else if (parseInode(view, &inode)) {
            if (inode.isFree())
                takeFreed(number, inode);
            else
                takeStray(number, inode, isFree);
        }
    }
}

bool XfsScanner::visitKnownPlaces(ScanObserver &observer)
{
    const Geometry &geometry = m_volume.geometry();
    std::vector<quint64> numbers = m_names.children();
    numbers.insert(numbers.end(), m_logNumbers.begin(), m_logNumbers.end());
    std::sort(numbers.begin(), numbers.end());
    qint64 last = -1;
    for (quint64 number : numbers) {
        const qint64 offset =
            geometry.offsetOfInode(number) / geometry.blockSize * geometry.blockSize;
        if (offset <= 0 || offset == last || m_walk->isChunkKnown(number))
            continue;
        last = offset;
        if (!observer.mayGoOn())
            return false;
        const QByteArray block = m_volume.media().read(offset, geometry.blockSize);
        if (isInode(View(block)))
            takeInodeBlock(offset, block);
    }
    // What the log tells to be in use, but has no place any more.
    for (quint64 number : m_logNumbers)
        if (!m_walk->isChunkKnown(number) && isInFreeSpace(geometry.offsetOfInode(number)))
            m_history.loseNow(number);
    return true;
}

bool XfsScanner::sweep(ScanObserver &observer)
{
    const Geometry &geometry = m_volume.geometry();
    BlockSweep::Handlers handlers;
    handlers.inodes = [this](qint64 offset, const QByteArray &block) {
        takeInodeBlock(offset, block);
    };
    handlers.entries = [&](qint64 offset, const QByteArray &block) {
        const DirectoryHead head = directoryHead(View(block));
        if (head.isV5 && head.uuid != geometry.uuid)
            m_former->addEntries(offset, block);
        else
            m_directories->readBlock(offset, block);
    };
    handlers.superblock = [this](qint64, const QByteArray &sector) {
        m_former->addSuperblock(sector);
    };
    return BlockSweep(m_volume.media(), geometry, handlers).run(m_sweep, observer, m_done);
}

bool XfsScanner::report(ScanObserver &observer)
{
    m_names.prepare();
    for (LostFile &lost : m_history.takeLost()) {
        Finding finding;
        const bool isInUse = m_walk->isAllocated(lost.number);
        if (!m_maker->make(std::move(lost), m_names, isInUse, &finding))
            continue;
        if (!observer.mayGoOn() || !observer.found(std::move(finding)))
            return false;
    }
    return true;
}

bool XfsScanner::reportExisting(ScanObserver &observer)
{
    if (!m_context.listsExisting)
        return true;
    const auto tell = [&](quint64 number, const Inode &inode) {
        Finding finding;
        return !m_maker->makeExisting(number, inode, m_names, &finding) ||
               (observer.mayGoOn() && observer.found(std::move(finding)));
    };
    for (const LostFile &file : m_stray)
        if (!tell(file.number, file.inode))
            return false;
    return m_walk->run(
        [&](quint64 number, const View &bytes, bool isAllocated) {
            Inode onDisk;
            Inode state;
            if (!isAllocated || !stateOf(number, bytes, &onDisk, &state))
                return true;
            return state.links == 0 || tell(number, state);
        },
        [&observer](qint64) { return observer.mayGoOn(); });
}

} // namespace services::recoveryd::xfs
