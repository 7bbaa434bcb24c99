#include "recoveryd/fat/filebook.h"

#include "recoveryd/content/contentreader.h"
#include "recoveryd/scan/contentcheck.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace services::recoveryd::fat {

namespace {

constexpr std::size_t kMaxFiles = 4 * 1000 * 1000;
constexpr int kMaxNames = 1024 * 1024 * 1024;
constexpr qint64 kMaxRecycleInfo = 66 * 1024;
constexpr int kAskEvery = 512;

} // namespace

FileBook::FileBook(const Volume &volume, const FolderTree &folders)
    : m_volume(volume)
    , m_folders(folders)
    , m_owned(volume.grid)
{}

void FileBook::add(const DirectoryEntry &entry, int folder, Life life, bool lacksHighHalf)
{
    const ClusterGrid &grid = m_volume.grid;
    const bool isPossible = entry.size > 0 && entry.size <= grid.count * grid.clusterSize &&
                            (grid.contains(entry.firstCluster) || lacksHighHalf);
    if (entry.firstCluster >= 0x10000)
        (life == Life::Deleted ? m_keepsHighHalf : m_usesHighHalf) = true;
    const bool isRoom = m_files.size() < kMaxFiles && m_names.size() < kMaxNames;
    if (!isPossible || !isRoom || entry.name.size() > std::numeric_limits<quint16>::max())
        return;
    File file;
    file.size = entry.size;
    file.written = qBound(qint64(0), entry.written, entry.size);
    file.createdMs = entry.createdMs;
    file.modifiedMs = entry.modifiedMs;
    file.nameAt = quint32(m_names.size());
    file.nameLength = quint16(entry.name.size());
    file.first = entry.firstCluster;
    file.folder = folder;
    file.life = life;
    file.isContiguous = entry.isContiguous;
    file.lacksHighHalf = lacksHighHalf;
    file.isChained = file.isSure = file.isGuessed = file.isDropped = file.isSplit = false;
    m_names += entry.name;
    m_files.push_back(file);
}

void FileBook::addDirectory(const ClusterRuns &runs, qint64 createdMs)
{
    m_occupied.add(runs, createdMs);
    m_usesHighHalf = m_usesHighHalf || (!runs.isEmpty() && runs.first().first >= 0x10000);
}

QHash<quint32, int> FileBook::slack() const
{
    const ClusterGrid &grid = m_volume.grid;
    QHash<quint32, int> slack;
    for (const File &file : m_files) {
        const int end = int(file.size % grid.clusterSize);
        if (file.life != Life::Live || end == 0)
            continue;
        const quint32 count = grid.clustersFor(file.size);
        bool isComplete = file.isContiguous;
        ClusterRuns runs = {{file.first, count}};
        if (!file.isContiguous && m_volume.table)
            runs = m_volume.table->chain(file.first, count, &isComplete);
        if (isComplete)
            slack.insert(runs.last().end() - 1, end);
    }
    return slack;
}

bool FileBook::report(bool listsExisting, ScanObserver &observer)
{
    if (!placeLive(observer) || !placeLost(observer))
        return false;
    settleConflicts();
    readRecycleBin();
    for (std::size_t i = 0; i < m_files.size(); ++i) {
        const File &file = m_files[i];
        if (i % kAskEvery == 0 && !observer.mayGoOn())
            return false;
        if (file.isDropped || (file.life == Life::Live && !listsExisting))
            continue;
        if (!observer.found(makeFinding(i)))
            return false;
    }
    return true;
}

QByteArray FileBook::nameOf(const File &file) const
{
    return m_names.mid(int(file.nameAt), file.nameLength);
}

ClusterRuns FileBook::runsOf(std::size_t index) const
{
    const File &file = m_files[index];
    if (file.isSplit)
        return m_split.value(quint32(index));
    return {{file.first, m_volume.grid.clustersFor(file.size)}};
}

void FileBook::setRuns(std::size_t index, const ClusterRuns &runs, bool isSure)
{
    File &file = m_files[index];
    file.isSure = isSure;
    file.isSplit = runs.size() != 1 || runs.first().first != file.first ||
                   runs.first().count != m_volume.grid.clustersFor(file.size);
    if (file.isSplit)
        m_split.insert(quint32(index), runs);
    else
        m_split.remove(quint32(index));
}

FileContent FileBook::contentOf(std::size_t index) const
{
    const File &file = m_files[index];
    return fat::contentOf(runsOf(index), m_volume.grid, file.size, file.written);
}

Finding::Check FileBook::check(const File &file, const ClusterRuns &runs) const
{
    Finding finding;
    finding.name = nameOf(file);
    finding.content = fat::contentOf(runs, m_volume.grid, file.size, file.written);
    return checkBySuffix(m_volume.media, finding);
}

bool FileBook::placeLive(ScanObserver &observer)
{
    for (std::size_t i = 0; i < m_files.size(); ++i) {
        if (i % kAskEvery == 0 && !observer.mayGoOn())
            return false;
        if (m_files[i].life != Life::Live || !placeByTable(i))
            continue;
        m_occupied.add(runsOf(i), m_files[i].createdMs);
        m_owned.insert(runsOf(i));
    }
    m_occupied.addRest(m_volume.used, m_volume.grid);
    return true;
}

/// True if the table or the entry itself says where the file is.
bool FileBook::placeByTable(std::size_t index)
{
    File &file = m_files[index];
    const quint32 count = m_volume.grid.clustersFor(file.size);
    if (file.isContiguous) {
        setRuns(index, {{file.first, count}}, true);
        return true;
    }
    if (!m_volume.table)
        return false;
    bool isComplete = false;
    ClusterRuns runs = m_volume.table->chain(file.first, count, &isComplete);
    if (!isComplete && file.life != Life::Live) {
        runs = m_volume.table->chainInCopy(file.first, count, &isComplete);
        isComplete = isComplete && !m_volume.used.intersects(runs);
    }
    // Of an existing file whose chain is damaged the beginning is all that is sure.
    if (isComplete || (file.life == Life::Live && !runs.isEmpty()))
        setRuns(index, runs, isComplete);
    file.isChained = isComplete;
    return isComplete;
}

bool FileBook::placeLost(ScanObserver &observer)
{
    dropOtherNames();
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < m_files.size(); ++i) {
        const File &file = m_files[i];
        if (i % kAskEvery == 0 && !observer.mayGoOn())
            return false;
        if (file.isDropped || file.life == Life::Live)
            continue;
        // The chain that begins in an existing file is that file's.
        const bool isOverwritten = m_owned.contains(file.first) && !file.isContiguous;
        if (isOverwritten || file.lacksHighHalf || !placeByTable(i))
            open.push_back(i);
        else if (file.life == Life::Former)
            m_occupied.add(runsOf(i), file.createdMs);
    }
    // In the order in which they were written, so that each finds what was in its way.
    std::stable_sort(open.begin(), open.end(), [this](std::size_t a, std::size_t b) {
        return m_files[a].allocatedMs() < m_files[b].allocatedMs();
    });
    int asked = 0;
    for (const bool former : {true, false}) {
        for (std::size_t index : open) {
            if ((m_files[index].life == Life::Former) != former)
                continue;
            if (++asked % kAskEvery == 0 && !observer.mayGoOn())
                return false;
            placeByGuess(index);
            if (former)
                m_occupied.add(runsOf(index), m_files[index].createdMs);
        }
    }
    return true;
}

void FileBook::placeByGuess(std::size_t index)
{
    File &file = m_files[index];
    const bool isFirstKnown = !file.lacksHighHalf || completeFirstCluster(&file);
    if (!m_volume.grid.contains(file.first)) {
        file.isDropped = true;
        return;
    }
    bool isComplete = false;
    const ClusterRuns runs =
        m_occupied.allotted(file.first, m_volume.grid.clustersFor(file.size),
                            file.allocatedMs() + kTimeStep, m_volume.grid, &isComplete);
    setRuns(index, runs, isComplete && isFirstKnown);
    file.isGuessed = m_volume.grid.clustersFor(file.size) > 1;
}

/// Older Windows clears the high half of the number on deletion. Of all clusters with the same low
/// half the one is taken whose contents fit the name. True if there is no doubt.
bool FileBook::completeFirstCluster(File *file) const
{
    const quint32 low = file->first & 0xFFFF;
    const ClusterGrid &grid = m_volume.grid;
    if (grid.end() <= 0x10000 || !m_usesHighHalf)
        return true;
    quint32 best = 0;
    int fitting = 0;
    for (quint32 cluster = low; cluster < grid.end(); cluster += 0x10000) {
        if (!grid.contains(cluster) || m_occupied.contains(cluster))
            continue;
        bool isComplete = false;
        const ClusterRuns runs = m_occupied.allotted(cluster, grid.clustersFor(file->size),
                                                     file->allocatedMs(), grid, &isComplete);
        const Finding::Check result = check(*file, runs);
        if (result == Finding::Check::None)
            return m_keepsHighHalf;
        if (result != Finding::Check::Passed)
            continue;
        best = best == 0 ? cluster : best;
        ++fitting;
        if (cluster == low && m_keepsHighHalf)
            return true;
    }
    if (best != 0)
        file->first = best;
    return fitting == 1;
}

/// A renamed file leaves its former entry behind, which is no other file.
void FileBook::dropOtherNames()
{
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < m_files.size(); ++i)
        order.push_back(i);
    const auto rank = [this](std::size_t index) {
        const File &file = m_files[index];
        return std::make_tuple(file.first, file.createdMs, int(file.life), -file.modifiedMs,
                               -file.size);
    };
    std::sort(order.begin(), order.end(),
              [&rank](std::size_t a, std::size_t b) { return rank(a) < rank(b); });
    for (std::size_t i = 1; i < order.size(); ++i) {
        const File &kept = m_files[order[i - 1]];
        File &file = m_files[order[i]];
        const bool isSame = file.first == kept.first && file.createdMs == kept.createdMs &&
                            file.createdMs != Finding::kUnknownTime;
        // Two names of one lost file are both worth telling.
        file.isDropped = isSame && file.life != Life::Live &&
                         (kept.life == Life::Live || kept.isDropped || kept.size != file.size);
    }
}

void FileBook::readRecycleBin()
{
    for (std::size_t i = 0; i < m_files.size(); ++i) {
        const File &file = m_files[i];
        if (file.isDropped || file.nameLength < 3 || file.size > kMaxRecycleInfo ||
            std::memcmp(m_names.constData() + file.nameAt, "$I", 2) != 0)
            continue;
        const QByteArray folder = m_folders.pathOf(file.folder).folder;
        if (!ntfs::RecycleBin::isInside(folder + '/'))
            continue;
        const FileContent content = contentOf(i);
        m_recycleBin.addInfo(folder, nameOf(file),
                             ContentReader(m_volume.media, content).readAll());
    }
}

Finding FileBook::makeFinding(std::size_t index)
{
    const File &file = m_files[index];
    const FolderPath path = m_folders.pathOf(file.folder);
    Finding finding;
    finding.name = nameOf(file);
    finding.folder = path.folder;
    finding.folderKnowledge = path.knowledge;
    finding.content = contentOf(index);
    finding.modifiedMs = file.modifiedMs;
    finding.isDeleted = file.life != Life::Live;
    finding.isMapComplete = file.isSure;
    finding.isMapGuessed = file.isSure && file.isGuessed;
    finding.recency = quint64(qMax(qint64(0), file.allocatedMs()));
    if (m_recycleBin.restore(&finding.folder, &finding.name, &finding.deletedMs))
        finding.folderKnowledge = Finding::Folder::Full;
    return finding;
}

} // namespace services::recoveryd::fat
