#include "recoveryd/fat/fatsurvey.h"

#include "recoveryd/fat/clustersweep.h"

#include <algorithm>

namespace services::recoveryd::fat {

namespace {

constexpr qint64 kMaxDirectory = 2 * 1024 * 1024; // 65,536 entries
constexpr qint64 kMaxFixedRoot = kMaxDirectory;
constexpr int kMaxFolders = 500 * 1000;
constexpr int kMaxStrays = 10 * 1000;
constexpr int kSector = 512;

} // namespace

FatSurvey::FatSurvey(const MediaReader &media, const FatLayout &layout,
                     const AllocationTable *table)
    : m_media(media)
    , m_layout(layout)
    , m_table(table)
    , m_used(table ? table->used() : ClusterSet(layout.grid))
    , m_read(layout.grid)
    , m_book({m_media, m_layout.grid, m_table, m_used}, m_folders)
{}

bool FatSurvey::walk(ScanObserver &observer)
{
    if (m_layout.hasFixedRoot()) {
        readFixedRoot();
    } else if (m_layout.grid.contains(m_layout.rootCluster)) {
        m_nodes.insert(m_layout.rootCluster, FolderTree::kRoot);
        m_queue.add({m_layout.rootCluster, FolderTree::kRoot, Life::Live});
    }
    return readQueued(observer);
}

bool FatSurvey::readQueued(ScanObserver &observer)
{
    return m_queue.readAll(observer, [this](const Folder &folder) { readFolder(folder); });
}

ClusterRuns FatSurvey::runsOf(const Folder &folder) const
{
    const quint32 limit = quint32(qMax(qint64(1), kMaxDirectory / m_layout.grid.clusterSize));
    bool isComplete = false;
    ClusterRuns runs;
    if (m_table && (folder.life == Life::Live || m_used.contains(folder.first)))
        runs = m_table->chain(folder.first, limit, &isComplete);
    if (runs.isEmpty())
        runs.append({folder.first, 1});
    return runs;
}

void FatSurvey::readFixedRoot()
{
    Reading reading;
    reading.folder = {0, FolderTree::kRoot, Life::Live};
    readSlots(
        m_media.read(m_layout.fixedRoot.start, qMin(m_layout.fixedRoot.length, kMaxFixedRoot)),
        &reading);
}

void FatSurvey::readFolder(const Folder &folder)
{
    const ClusterGrid &grid = m_layout.grid;
    Reading reading;
    reading.folder = folder;
    const ClusterRuns runs = runsOf(folder);
    quint32 last = folder.first;
    for (const ClusterRun &run : runs) {
        for (quint32 cluster = run.first; cluster < run.end(); ++cluster) {
            if (m_read.contains(cluster))
                return;
            m_read.insert(cluster);
            readSlots(m_media.read(grid.offsetOf(cluster), grid.clusterSize), &reading);
            last = cluster;
        }
    }
    m_book.addDirectory(runs, Finding::kUnknownTime);
    if (folder.life != Life::Live && !reading.isBehindEnd)
        readFurther(&reading, last);
}

/// The chain of a lost directory is gone: it goes on in the next cluster, or in one that the sweep
/// may find.
void FatSurvey::readFurther(Reading *reading, quint32 last)
{
    const ClusterGrid &grid = m_layout.grid;
    for (qint64 read = grid.clusterSize; read < kMaxDirectory; read += grid.clusterSize) {
        const quint32 next = last + 1;
        if (reading->isBehindEnd)
            return;
        if (!grid.contains(next) || m_read.contains(next) || m_used.contains(next))
            break;
        const QByteArray bytes = m_media.read(grid.offsetOf(next), grid.clusterSize);
        if (!looksLikeDirectory(bytes.constData(), bytes.size(), grid))
            break;
        m_read.insert(next);
        m_book.addDirectory({{next, 1}}, Finding::kUnknownTime);
        readSlots(bytes, reading);
        last = next;
    }
    if (!reading->isBehindEnd && m_openEnds.size() < kMaxFolders)
        m_openEnds.append({last, reading->folder, reading->lastCreatedMs, reading->reader});
}

void FatSurvey::readSlots(const QByteArray &bytes, Reading *reading)
{
    for (int at = 0; at + kSlot <= bytes.size(); at += kSlot) {
        const char *const slot = bytes.constData() + at;
        // Behind the end there may be entries of before, or anything.
        if (reading->isBehindEnd && slot[0] != 0 && !isPlausibleSlot(slot, m_layout.grid))
            continue;
        if (reading->reader.feed(slot))
            takeEntry(reading->reader, reading);
        reading->isBehindEnd = reading->isBehindEnd || reading->reader.isAtEnd();
    }
}

void FatSurvey::takeEntry(const ShortEntryReader &reader, Reading *reading)
{
    const DirectoryEntry &entry = reader.entry();
    const Folder &folder = reading->folder;
    reading->lastCreatedMs = qMax(reading->lastCreatedMs, entry.createdMs);
    const bool isGone = entry.isDeleted || reading->isBehindEnd;
    // Deleted from a directory that is lost itself, or lost with it.
    const Life life = isGone                      ? Life::Deleted
                      : folder.life == Life::Live ? Life::Live
                                                  : Life::Former;
    if (entry.isDirectory)
        takeSubfolder(entry, folder, life);
    else
        m_book.add(entry, folder.node, life,
                   reader.isHighHalfZero() && m_layout.grid.end() > 0x10000);
}

bool FatSurvey::isHeadOf(quint32 cluster, const Folder &parent) const
{
    if (!m_layout.grid.contains(cluster))
        return false;
    quint32 own = 0;
    quint32 above = 0;
    const QByteArray head = m_media.read(m_layout.grid.offsetOf(cluster), 2 * kSlot);
    if (!isDirectoryHead(head.constData(), head.size(), &own, &above) || own != cluster)
        return false;
    // Below the root some drivers name its cluster and some 0.
    const bool isBelowRoot =
        parent.node == FolderTree::kRoot && (above == 0 || above == m_layout.rootCluster);
    return above == parent.first || isBelowRoot;
}

/// The first cluster of a directory; of a deleted one the high half may be lost. 0 if it is gone.
quint32 FatSurvey::headOf(const DirectoryEntry &entry, const Folder &parent, Life life) const
{
    const quint32 first = entry.firstCluster;
    if (life == Life::Live)
        return m_layout.grid.contains(first) ? first : 0;
    if (isHeadOf(first, parent))
        return first;
    if (first < 0x10000)
        for (quint32 cluster = first; m_layout.grid.end() > cluster; cluster += 0x10000)
            if (!m_used.contains(cluster) && isHeadOf(cluster, parent))
                return cluster;
    return 0;
}

void FatSurvey::takeSubfolder(const DirectoryEntry &entry, const Folder &parent, Life life)
{
    const quint32 head = headOf(entry, parent, life);
    if (head == 0)
        return;
    const auto known = m_nodes.constFind(head);
    if (known != m_nodes.constEnd()) {
        if (!m_folders.isPlaced(*known))
            m_folders.place(*known, parent.node, entry.name);
        return;
    }
    const int node = m_nodes.size() < kMaxFolders ? m_folders.add() : FolderTree::kNone;
    if (node == FolderTree::kNone)
        return;
    m_folders.place(node, parent.node, entry.name);
    m_nodes.insert(head, node);
    const Folder folder = {head, node, life};
    m_queue.add(folder);
}

bool FatSurvey::sweep(const Ranges &ranges, bool includesUsed, ScanObserver &observer, qint64 *done)
{
    m_includesUsed = includesUsed;
    m_slack = m_book.slack();
    const bool isDone = sweepClusters(
        m_media, m_layout.grid, ranges, observer, done,
        [this](quint32 cluster, const char *bytes, int length) { visit(cluster, bytes, length); });
    if (!isDone)
        return false;
    readOrphans();
    attachLoose();
    return readQueued(observer);
}

void FatSurvey::visit(quint32 cluster, const char *bytes, int length)
{
    const bool isUsed = m_used.contains(cluster);
    const int end = isUsed ? m_slack.value(cluster, 0) : 0;
    if (m_read.contains(cluster) || (isUsed && end == 0 && !m_includesUsed))
        return;
    // A driver clears the rest of a file's last sector only.
    const int from = (end + kSector - 1) / kSector * kSector;
    for (int at = from; at + 2 * kSlot <= length; at += kSector) {
        quint32 own = 0;
        quint32 parent = 0;
        if (bytes[at] != '.' || !isDirectoryHead(bytes + at, length - at, &own, &parent))
            continue;
        visitHead(cluster, at, own);
        if (at == 0 && own == cluster)
            return;
    }
    visitLoose(cluster, from, bytes, length);
}

void FatSurvey::visitHead(quint32 cluster, int at, quint32 own)
{
    if (at != 0 || own != cluster) {
        if (m_strays.size() < kMaxStrays)
            m_strays.append({m_layout.grid.offsetOf(cluster) + at, own});
        return;
    }
    const int node = m_orphans.size() < kMaxFolders ? m_folders.add() : FolderTree::kNone;
    if (node == FolderTree::kNone)
        return;
    m_nodes.insert(cluster, node);
    m_orphans.append({cluster, node, m_used.contains(cluster) ? Life::Live : Life::Former});
}

/// A later file that is smaller than a cluster leaves the rest of a directory.
void FatSurvey::visitLoose(quint32 cluster, int from, const char *bytes, int length)
{
    constexpr int kMostTries = 64;
    const int step = qMax(kSector, length / kMostTries);
    for (int at = from; at < length && m_loose.size() < kMaxFolders; at += step) {
        if (bytes[at] == 0 || !looksLikeDirectory(bytes + at, length - at, m_layout.grid))
            continue;
        m_loose.append({cluster, at});
        return;
    }
}

void FatSurvey::readOrphans()
{
    for (const Folder &orphan : qAsConst(m_orphans))
        readFolder(orphan);
    m_orphans.clear();
}

/// Parts of directories are given to the lost directory that had to go on somewhere: the name that
/// was cut must fit, or else the nearest place before.
void FatSurvey::attachLoose()
{
    for (const LoosePart &part : qAsConst(m_loose)) {
        const quint32 cluster = part.cluster;
        if (m_read.contains(cluster))
            continue;
        OpenEnd *best = nullptr;
        for (OpenEnd &end : m_openEnds)
            if (end.last < cluster && (!best || end.last > best->last))
                best = &end;
        Reading reading;
        reading.folder = {cluster, FolderTree::kNone,
                          m_used.contains(cluster) && part.from == 0 ? Life::Live : Life::Former};
        if (best) {
            reading.folder = best->folder;
            reading.reader = best->reader;
        }
        m_read.insert(cluster);
        if (part.from == 0)
            m_book.addDirectory({{cluster, 1}}, Finding::kUnknownTime);
        readSlots(m_media.read(m_layout.grid.offsetOf(cluster) + part.from,
                               m_layout.grid.clusterSize - part.from),
                  &reading);
        if (!best)
            continue;
        *best = {cluster, reading.folder, reading.lastCreatedMs, reading.reader};
        if (reading.isBehindEnd)
            best->last = m_layout.grid.end(); // closed
    }
    m_loose.clear();
}

bool FatSurvey::report(bool listsExisting, ScanObserver &observer)
{
    return m_book.report(listsExisting, observer);
}

} // namespace services::recoveryd::fat
