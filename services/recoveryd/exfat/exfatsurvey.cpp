#include "recoveryd/exfat/exfatsurvey.h"

#include "recoveryd/fat/clustersweep.h"

namespace services::recoveryd::exfat {

using fat::ClusterRun;
using fat::ClusterRuns;
using fat::FolderTree;
using fat::Life;

namespace {

constexpr qint64 kMaxDirectory = 256 * 1024 * 1024;
constexpr qint64 kMaxRead = 4 * 1024 * 1024; // of one cluster at once
// Of a lost directory, so that a damaged size does not make one claim the volume.
constexpr quint32 kMaxLostClusters = 4096;
constexpr int kMaxMisses = 8;
constexpr int kMaxFolders = 500 * 1000;

} // namespace

ExfatSurvey::ExfatSurvey(const MediaReader &media, const ExfatLayout &layout,
                         const fat::AllocationTable &table)
    : m_media(media)
    , m_layout(layout)
    , m_table(table)
    , m_read(layout.grid)
    , m_book({m_media, m_layout.grid, &m_table, m_used}, m_folders)
{
    // Without a bitmap all clusters are taken as free.
    if (!readBitmap(media, layout, table, &m_used))
        m_used = fat::ClusterSet(layout.grid);
}

bool ExfatSurvey::walk(ScanObserver &observer)
{
    if (m_layout.grid.contains(m_layout.rootCluster)) {
        bool isComplete = false;
        const quint32 limit = m_layout.grid.clustersFor(kMaxDirectory);
        ClusterRuns runs = m_table.chain(m_layout.rootCluster, limit, &isComplete);
        if (runs.isEmpty())
            runs.append({m_layout.rootCluster, 1});
        m_nodes.insert(m_layout.rootCluster, FolderTree::kRoot);
        m_queue.add({runs, FolderTree::kRoot, Life::Live});
    }
    return readQueued(observer);
}

bool ExfatSurvey::readQueued(ScanObserver &observer)
{
    return m_queue.readAll(observer, [this](const Folder &folder) { readFolder(folder); });
}

void ExfatSurvey::readFolder(const Folder &folder)
{
    const fat::ClusterGrid &grid = m_layout.grid;
    EntrySetReader reader;
    int misses = 0;
    for (const ClusterRun &run : folder.runs) {
        for (quint32 cluster = run.first; cluster < run.end(); ++cluster) {
            const qint64 length = qMin(grid.clusterSize, kMaxRead);
            if (m_read.contains(cluster) || misses > kMaxMisses)
                return;
            const QByteArray bytes = m_media.read(grid.offsetOf(cluster), length);
            const bool isOwn =
                folder.life == Life::Live || hasEntrySets(bytes.constData(), bytes.size());
            misses += isOwn ? 0 : 1;
            if (!isOwn)
                continue;
            m_read.insert(cluster);
            m_book.addDirectory({{cluster, 1}}, Finding::kUnknownTime);
            readSlots(bytes, folder, &reader);
        }
    }
}

void ExfatSurvey::readSlots(const QByteArray &bytes, const Folder &folder, EntrySetReader *reader)
{
    for (int at = 0; at + kSlot <= bytes.size(); at += kSlot)
        if (reader->feed(bytes.constData() + at))
            takeEntry(reader->entry(), folder);
}

void ExfatSurvey::takeEntry(const fat::DirectoryEntry &entry, const Folder &folder)
{
    const Life life = entry.isDeleted             ? Life::Deleted
                      : folder.life == Life::Live ? Life::Live
                                                  : Life::Former;
    if (entry.isDirectory)
        takeSubfolder(entry, folder, life);
    else
        m_book.add(entry, folder.node, life);
}

ClusterRuns ExfatSurvey::runsOf(const fat::DirectoryEntry &entry, Life life) const
{
    const quint32 most = life == Life::Live ? m_layout.grid.count : kMaxLostClusters;
    const quint32 count =
        qBound(quint32(1), m_layout.grid.clustersFor(qMin(entry.size, kMaxDirectory)), most);
    bool isComplete = false;
    ClusterRuns runs;
    if (!entry.isContiguous)
        runs = m_table.chain(entry.firstCluster, count, &isComplete);
    if (entry.isContiguous || runs.isEmpty())
        runs = {{entry.firstCluster, qMin(count, m_layout.grid.end() - entry.firstCluster)}};
    return runs;
}

void ExfatSurvey::takeSubfolder(const fat::DirectoryEntry &entry, const Folder &parent, Life life)
{
    if (!m_layout.grid.contains(entry.firstCluster))
        return;
    const auto head = m_nodes.constFind(entry.firstCluster);
    if (head != m_nodes.constEnd() && m_folders.isPlaced(*head))
        return;
    const int node = m_folders.count() < kMaxFolders ? m_folders.add() : FolderTree::kNone;
    if (node == FolderTree::kNone)
        return;
    m_folders.place(node, parent.node, entry.name);
    const Folder folder = {runsOf(entry, life), node, life};
    // Clusters that were swept before are parts of it.
    for (const ClusterRun &run : folder.runs) {
        for (quint32 cluster = run.first; cluster < run.end(); ++cluster) {
            const auto swept = m_nodes.constFind(cluster);
            if (swept != m_nodes.constEnd() && !m_folders.isPlaced(*swept))
                m_folders.place(*swept, node, QByteArray());
        }
    }
    m_nodes.insert(entry.firstCluster, node);
    m_queue.add(folder);
}

bool ExfatSurvey::sweep(const Ranges &ranges, bool includesUsed, ScanObserver &observer,
                        qint64 *done)
{
    m_includesUsed = includesUsed;
    m_slack = m_book.slack();
    const bool isDone = fat::sweepClusters(
        m_media, m_layout.grid, ranges, observer, done,
        [this](quint32 cluster, const char *bytes, int length) { visit(cluster, bytes, length); });
    if (!isDone)
        return false;
    readOrphans();
    return readQueued(observer);
}

int ExfatSurvey::freePartOf(quint32 cluster) const
{
    if (!m_used.contains(cluster))
        return 0;
    const int end = m_slack.value(cluster, -1);
    // Without an owner it is a directory in use, or a lost one.
    return end < 0 ? end : (end + kSlot - 1) / kSlot * kSlot;
}

void ExfatSurvey::visit(quint32 cluster, const char *bytes, int length)
{
    const int from = qMax(0, freePartOf(cluster));
    if (m_read.contains(cluster) || from >= length)
        return;
    const bool isRoot = from == 0 && isRootDirectory(bytes, length);
    const bool isOwned = from == 0 && m_used.contains(cluster);
    if (isOwned && !m_includesUsed)
        return;
    // Of what an existing file may have only a directory's beginning counts.
    if (!isRoot && (isOwned ? !hasEntrySets(bytes, length)
                            : !hasEntrySetAnywhere(bytes + from, length - from)))
        return;
    const int node = m_orphans.size() < kMaxFolders ? m_folders.add() : FolderTree::kNone;
    if (node == FolderTree::kNone)
        return;
    if (isRoot) // of an earlier format, or of this one where its chain is damaged
        m_folders.place(node, FolderTree::kRoot, QByteArray());
    m_nodes.insert(cluster, node);
    m_orphans.append(cluster);
}

void ExfatSurvey::readOrphans()
{
    EntrySetReader reader;
    quint32 before = 0;
    for (quint32 cluster : qAsConst(m_orphans)) {
        if (m_read.contains(cluster))
            continue;
        if (cluster != before + 1)
            reader = EntrySetReader();
        before = cluster;
        m_read.insert(cluster);
        const int from = qMax(0, freePartOf(cluster));
        const bool isLive = from == 0 && m_used.contains(cluster);
        const Life life = isLive ? Life::Live : Life::Former;
        const QByteArray bytes = m_media.read(m_layout.grid.offsetOf(cluster) + from,
                                              qMin(m_layout.grid.clusterSize, kMaxRead) - from);
        if (from == 0 && hasEntrySets(bytes.constData(), bytes.size()))
            m_book.addDirectory({{cluster, 1}}, Finding::kUnknownTime);
        readSlots(bytes, {ClusterRuns(), m_nodes.value(cluster), life}, &reader);
    }
    m_orphans.clear();
}

bool ExfatSurvey::report(bool listsExisting, ScanObserver &observer)
{
    return m_book.report(listsExisting, observer);
}

} // namespace services::recoveryd::exfat
