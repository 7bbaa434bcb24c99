#include "recoveryd/fat/fatscanner.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/fat/clustersweep.h"
#include "recoveryd/fat/fatsurvey.h"

#include <map>

namespace services::recoveryd::fat {

namespace {

constexpr qint64 kMaxCluster = 256 * 1024;

} // namespace

FatScanner::FatScanner(const ScanContext &context)
    : m_context(context)
    , m_isOpen(findFatLayout(*context.media, &m_layout))
{
    if (!m_isOpen)
        return;
    const qint64 data = m_layout.grid.count * m_layout.grid.clusterSize;
    m_work = m_layout.table.length + (sweepsEverything() ? data : qMin(data, kQuickSweep));
}

bool FatScanner::sweepsEverything() const
{
    return m_context.request.mode == ScanRequest::Mode::Deep || m_context.listsExisting ||
           m_layout.isDerived;
}

QString FatScanner::phaseText() const
{
    return m_layout.isDerived ? QStringLiteral("引导扇区已损坏，正在查找 FAT 目录")
                              : QStringLiteral("正在读取 FAT 目录");
}

qint64 FatScanner::totalWork() const
{
    return m_work;
}

bool FatScanner::scan(ScanObserver &observer, QString *error)
{
    if (!m_isOpen) {
        *error = QStringLiteral("找不到 FAT 的引导扇区和文件分配表");
        return false;
    }
    // A stop is no error, and the medium's read errors are told by the reader.
    return scanAll(observer) || true;
}

bool FatScanner::scanAll(ScanObserver &observer)
{
    const MediaReader &media = *m_context.media;
    const ClusterGrid &grid = m_layout.grid;
    const AllocationTable table(media, m_layout.table, grid);
    FatSurvey survey(media, m_layout, &table);
    qint64 done = m_layout.table.length;
    observer.advanced(done);
    // What is in use, too: behind the end of a file its cluster may hold older entries.
    const bool isDamaged = m_context.listsExisting || m_layout.isDerived;
    Ranges ranges = {{grid.heapOffset, grid.count * grid.clusterSize}};
    if (!sweepsEverything())
        ranges = firstBytes(ranges, kQuickSweep);
    return survey.walk(observer) && survey.sweep(ranges, isDamaged, observer, &done) &&
           survey.report(isDamaged, observer) && scanFormer(survey.strays(), observer, &done);
}

bool FatScanner::scanFormer(const QVector<StrayDirectory> &strays, ScanObserver &observer,
                            qint64 *done) const
{
    FatLayout former;
    if (!gridOfStrays(strays, m_context.media->size(), &former.grid))
        return true;
    FatSurvey survey(*m_context.media, former, nullptr);
    const Ranges everything = {
        {former.grid.heapOffset, former.grid.count * former.grid.clusterSize}};
    return survey.sweep(firstBytes(everything, m_work), true, observer, done) &&
           survey.report(false, observer);
}

bool gridOfStrays(const QVector<StrayDirectory> &strays, qint64 volumeSize, ClusterGrid *grid)
{
    // Two directories of one format are as many clusters apart as their numbers say.
    std::map<std::pair<qint64, qint64>, int> votes;
    const StrayDirectory *before = nullptr;
    for (const StrayDirectory &stray : strays) {
        if (before && stray.cluster > before->cluster) {
            const qint64 size =
                (stray.offset - before->offset) / (qint64(stray.cluster) - before->cluster);
            const qint64 heap = stray.offset - (qint64(stray.cluster) - ClusterGrid::kFirst) * size;
            if (size >= 512 && size <= kMaxCluster && isPowerOfTwo(quint32(size)) && heap > 0)
                ++votes[{size, heap}];
        }
        before = &stray;
    }
    int best = 0;
    for (const auto &vote : votes) {
        if (vote.second <= best)
            continue;
        best = vote.second;
        grid->clusterSize = vote.first.first;
        grid->heapOffset = vote.first.second;
    }
    if (best == 0)
        return false;
    grid->count =
        quint32(qMin(qint64(0x0FFFFFF5), (volumeSize - grid->heapOffset) / grid->clusterSize));
    return grid->count > 0;
}

} // namespace services::recoveryd::fat
