#include "recoveryd/ntfs/ntfsscanner.h"

#include "recoveryd/ntfs/currentscan.h"
#include "recoveryd/ntfs/earlierscan.h"
#include "recoveryd/ntfs/indexentries.h"
#include "recoveryd/ntfs/recordsweep.h"

#include <algorithm>

namespace services::recoveryd::ntfs {

namespace {

constexpr qint64 kDefaultClusterSize = 4096;
/// When a volume was formatted is known to the second, FILETIME.
constexpr quint64 kTimeOfFormat = 20000000;

/// Where old file tables begin or go on: behind the parts of the present one, and at the usual
/// places for other cluster sizes.
QVector<qint64> usualTablePlaces(const NtfsVolume &volume)
{
    QVector<qint64> places;
    for (const Extent &extent : volume.mft().extents)
        places.append(extent.physicalEnd());
    for (qint64 clusterSize = 512; clusterSize <= 64 * 1024; clusterSize *= 2) {
        places.append(4 * clusterSize);
        places.append(qint64(786432) * clusterSize);
        places.append(volume.media().size() / clusterSize / 3 * clusterSize);
    }
    std::sort(places.begin(), places.end());
    return places;
}

} // namespace

NtfsScanner::NtfsScanner(const ScanContext &context)
    : m_context(context)
    , m_volume(*m_context.media)
    , m_isOpen(m_volume.open())
{
    if (!m_isOpen || m_context.request.mode == ScanRequest::Mode::Deep)
        m_sweep = rangesToSweep();
}

QString NtfsScanner::phaseText() const
{
    return m_isOpen ? QStringLiteral("正在读取 NTFS 主文件表")
                    : QStringLiteral("主文件表已损坏，正在逐扇区查找 NTFS 文件记录");
}

qint64 NtfsScanner::totalWork() const
{
    return (m_isOpen ? m_volume.mft().size : 0) + totalLength(m_sweep);
}

Ranges NtfsScanner::rangesToSweep() const
{
    const Ranges everything = {{0, m_context.media->size()}};
    Ranges free;
    QString ignored;
    if (!m_isOpen || !m_volume.isMftComplete() || m_context.listsExisting ||
        !ntfsFreeRanges(m_volume, &free, &ignored))
        return everything;
    return free;
}

bool NtfsScanner::scan(ScanObserver &observer, QString *error)
{
    Q_UNUSED(error)
    // A stop is no error, and the medium's read errors are told by the reader.
    return scanAll(observer) || true;
}

bool NtfsScanner::scanAll(ScanObserver &observer)
{
    NameBook names;
    NameBook earlierNames;
    const bool existing = m_context.listsExisting;
    const qint64 clusterSize = m_isOpen ? m_volume.geometry().clusterSize : kDefaultClusterSize;
    EarlierScan fragments(*m_context.media, names,
                          existing ? EarlierScan::InUse::Existing : EarlierScan::InUse::Lost,
                          clusterSize);
    EarlierScan earlier(*m_context.media, earlierNames, EarlierScan::InUse::Lost, clusterSize);
    if (!m_isOpen)
        return sweep(0, names, fragments, earlierNames, earlier, observer) &&
               fragments.report(observer);
    CurrentScan current(m_volume, names, existing);
    return current.readJournal(observer) && current.walkTable(observer) &&
           current.readIndexes(observer) && current.readLog(observer) &&
           sweep(current.formattedTime(), names, fragments, earlierNames, earlier, observer) &&
           current.reportRest(observer) && fragments.report(observer) && earlier.report(observer);
}

bool NtfsScanner::sweep(quint64 formattedTime, NameBook &names, EarlierScan &fragments,
                        NameBook &earlierNames, EarlierScan &earlier, ScanObserver &observer)
{
    Ranges table;
    for (const Extent &extent : m_volume.mft().extents)
        table.append({extent.physical, extent.length});
    std::sort(table.begin(), table.end(),
              [](const Range &a, const Range &b) { return a.start < b.start; });
    RecordSweep::Handlers handlers;
    handlers.record = [&](qint64 offset, Record &record) {
        const auto part =
            std::partition_point(table.cbegin(), table.cend(),
                                 [offset](const Range &range) { return range.end() <= offset; });
        if (part != table.cend() && part->start <= offset)
            return true;
        const bool isFragment =
            !m_isOpen || (!m_volume.isMftComplete() && record.number != kUnknownNumber &&
                          m_volume.offsetOfRecord(record.number) < 0);
        (isFragment ? fragments : earlier).add(offset, record);
        return true;
    };
    handlers.indexBlock = [&](const QByteArray &block) {
        forEachIndexEntry(block.constData(), block.size(),
                          [&](quint64 reference, const FileName &name) {
                              if (!m_isOpen || name.changedTime >= formattedTime)
                                  names.addRemains(reference, name, name.changedTime);
                              if (m_isOpen && name.changedTime < formattedTime + kTimeOfFormat)
                                  earlierNames.addRemains(reference, name, name.changedTime);
                          });
    };
    RecordSweep sweeper(*m_context.media, handlers);
    return (!m_isOpen || followTables(sweeper, observer)) &&
           sweeper.run(m_sweep, observer, m_isOpen ? m_volume.mft().size : 0);
}

bool NtfsScanner::followTables(RecordSweep &sweeper, ScanObserver &observer) const
{
    qint64 swept = 0;
    for (qint64 place : usualTablePlaces(m_volume)) {
        const qint64 start = qMax(place, swept);
        if (start >= m_context.media->size())
            break;
        if (!sweeper.follow(start, m_context.media->size(), &swept, observer))
            return false;
    }
    return true;
}

} // namespace services::recoveryd::ntfs
