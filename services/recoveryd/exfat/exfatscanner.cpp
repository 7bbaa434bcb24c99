#include "recoveryd/exfat/exfatscanner.h"

#include "recoveryd/exfat/exfatsurvey.h"
#include "recoveryd/fat/clustersweep.h"

namespace services::recoveryd::exfat {

ExfatScanner::ExfatScanner(const ScanContext &context)
    : m_context(context)
    , m_isOpen(findExfatLayout(*context.media, &m_layout))
{}

bool ExfatScanner::sweepsEverything() const
{
    return m_context.request.mode == ScanRequest::Mode::Deep || m_context.listsExisting;
}

QString ExfatScanner::phaseText() const
{
    return QStringLiteral("正在读取 exFAT 目录");
}

qint64 ExfatScanner::totalWork() const
{
    const qint64 data = m_layout.grid.count * m_layout.grid.clusterSize;
    return sweepsEverything() ? data : qMin(data, fat::kQuickSweep);
}

bool ExfatScanner::scan(ScanObserver &observer, QString *error)
{
    if (!m_isOpen) {
        *error = QStringLiteral("找不到 exFAT 的引导扇区");
        return false;
    }
    const MediaReader &media = *m_context.media;
    const fat::ClusterGrid &grid = m_layout.grid;
    const fat::AllocationTable table(media, m_layout.table, grid);
    ExfatSurvey survey(media, m_layout, table);
    // What is in use, too: behind the end of a file its cluster may hold older entries.
    Ranges ranges = {{grid.heapOffset, grid.count * grid.clusterSize}};
    if (!sweepsEverything())
        ranges = fat::firstBytes(ranges, fat::kQuickSweep);
    qint64 done = 0;
    // A stop is no error, and the medium's read errors are told by the reader.
    return (survey.walk(observer) &&
            survey.sweep(ranges, m_context.listsExisting, observer, &done) &&
            survey.report(m_context.listsExisting, observer)) ||
           true;
}

} // namespace services::recoveryd::exfat
