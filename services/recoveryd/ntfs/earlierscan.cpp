#include "recoveryd/ntfs/earlierscan.h"

#include "recoveryd/ntfs/indexentries.h"

#include <algorithm>

namespace services::recoveryd::ntfs {

namespace {

constexpr int kMaxRecords = 8 * 1000 * 1000;
constexpr int kMaxContinuations = 1000 * 1000;
constexpr quint64 kSystemRecords = 24;

} // namespace

EarlierScan::EarlierScan(const MediaReader &media, NameBook &names, InUse inUse,
                         qint64 defaultClusterSize)
    : m_media(media)
    , m_names(names)
    , m_inUse(inUse)
    , m_defaultClusterSize(defaultClusterSize)
{}

void EarlierScan::add(qint64 offset, const Record &record)
{
    if (record.base != 0) {
        if (m_continuations.size() < kMaxContinuations && record.number != kUnknownNumber) {
            m_continuations.insert(record.number, offset);
            m_continuationsOf[quint32(numberOf(record.base))].append(record.number);
        }
        return;
    }
    if (record.attributes.isEmpty())
        return;
    if (const qint64 clusterSize = clusterSizeOf(record))
        ++m_clusterSizes[clusterSize];
    if (!record.isDirectory()) {
        if (m_offsets.size() < kMaxRecords)
            m_offsets.append(offset);
        return;
    }
    if (record.number != kUnknownNumber)
        m_names.addDirectory(record, gatherFile(record, GatherSources()));
    forEachIndexEntry(record.bytes.constData(), record.bytes.size(),
                      [this](quint64 reference, const FileName &name) {
                          m_names.addRemains(reference, name, name.changedTime);
                      });
}

qint64 EarlierScan::usualClusterSize() const
{
    qint64 usual = m_defaultClusterSize;
    int most = 0;
    for (auto it = m_clusterSizes.constBegin(); it != m_clusterSizes.constEnd(); ++it) {
        if (it.value() > most) {
            most = it.value();
            usual = it.key();
        }
    }
    return usual;
}

FileFacts EarlierScan::gather(const Record &base, qint64 clusterSize) const
{
    GatherSources sources;
    sources.record = [this](quint64 number, Record *record) {
        const auto place = m_continuations.constFind(number);
        if (place == m_continuations.constEnd())
            return false;
        const QByteArray bytes = m_media.read(*place, 16384);
        return parseRecord(bytes.constData(), bytes.size(), record);
    };
    sources.media = [this](qint64 offset, qint64 length) {
        return m_media.read(offset, length);
    };
    sources.clusterSize = clusterSize;
    sources.continuations = m_continuationsOf.value(base.number);
    return gatherFile(base, sources);
}

bool EarlierScan::reportOne(const Record &record, ScanObserver &observer)
{
    qint64 clusterSize = clusterSizeOf(record);
    if (clusterSize == 0)
        clusterSize = usualClusterSize();
    const FileFacts facts = gather(record, clusterSize);
    Place place = m_names.placeOf(record, facts);
    if (place.isSystem || (record.number < kSystemRecords &&
                           (place.finding.name.isEmpty() || place.finding.name.startsWith('$'))))
        return true;
    Era era = Era::Earlier;
    if (m_inUse == InUse::Existing)
        era = record.isInUse() ? Era::Existing : Era::Current;
    const QVector<Finding> findings =
        makeFindings(facts, place.finding, era, {clusterSize, m_media.size()});
    for (Finding finding : findings)
        if (!observer.found(std::move(finding)))
            return false;
    return true;
}

bool EarlierScan::report(ScanObserver &observer)
{
    m_names.finishRecycleBin();
    std::sort(m_offsets.begin(), m_offsets.end());
    m_offsets.erase(std::unique(m_offsets.begin(), m_offsets.end()), m_offsets.end());
    for (int i = 0; i < m_offsets.size(); ++i) {
        if (i % 1024 == 0 && !observer.mayGoOn())
            return false;
        const QByteArray bytes = m_media.read(m_offsets.at(i), 4096);
        Record record;
        if (parseRecord(bytes.constData(), bytes.size(), &record) && !reportOne(record, observer))
            return false;
    }
    m_offsets.clear();
    return true;
}

} // namespace services::recoveryd::ntfs
