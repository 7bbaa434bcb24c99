#include "recoveryd/ntfs/ntfsvolume.h"

#include "recoveryd/content/contentreader.h"

#include <algorithm>

namespace services::recoveryd::ntfs {

namespace {

constexpr qint64 kChunk = 4 * 1024 * 1024;

/// Gathers free clusters into ranges.
class FreeRangeBuilder
{
public:
    FreeRangeBuilder(qint64 clusterSize, Ranges *ranges)
        : m_clusterSize(clusterSize)
        , m_ranges(ranges)
    {}

    void addByte(quint8 bits, qint64 firstCluster, int count)
    {
        if (bits == 0 && count == 8) {
            add(firstCluster, 8);
            return;
        }
        for (int i = 0; i < count; ++i)
            if ((bits & (1 << i)) == 0)
                add(firstCluster + i, 1);
    }

private:
    void add(qint64 cluster, qint64 count)
    {
        const qint64 start = cluster * m_clusterSize;
        if (!m_ranges->isEmpty() && m_ranges->last().end() == start)
            m_ranges->last().length += count * m_clusterSize;
        else
            m_ranges->append({start, count * m_clusterSize});
    }

    qint64 m_clusterSize;
    Ranges *m_ranges;
};

} // namespace

bool NtfsVolume::open()
{
    Record table;
    if (!findGeometry(m_media, &m_geometry) || !readTableRecord(&table))
        return false;
    mapTable(table);
    return !m_mft.extents.isEmpty();
}

bool NtfsVolume::readTableRecord(Record *record) const
{
    for (qint64 offset : {m_geometry.mftOffset, m_geometry.mirrorOffset}) {
        const QByteArray bytes = m_media.read(offset, m_geometry.recordSize);
        if (parseRecord(bytes.constData(), bytes.size(), record) && record->isInUse() &&
            record->find(kData) && !record->find(kData)->isResident)
            return true;
    }
    return false;
}

/// The records that continue record 0 stand in the part of the table which the pieces before them
/// map, so the map grows in rounds.
void NtfsVolume::mapTable(const Record &table)
{
    constexpr int kMaxRounds = 64;
    int mappedBefore = -1;
    for (int round = 0; round < kMaxRounds; ++round) {
        const FileFacts facts = gather(table);
        const Stream *data = facts.stream(QByteArray());
        if (!data)
            return;
        m_mft = contentOf(*data, m_geometry.clusterSize, m_media.size(), &m_isMftComplete);
        m_isMftComplete = m_isMftComplete && facts.areAllRecordsFound;
        if (m_isMftComplete || data->runs.size() == mappedBefore)
            break;
        mappedBefore = data->runs.size();
    }
    // A size that is wrong must not make anyone walk through records that have no place.
    const qint64 end = m_mft.extents.isEmpty() ? 0 : m_mft.extents.last().logicalEnd();
    m_mft.size = qMin(m_mft.size, end);
}

qint64 NtfsVolume::offsetOfRecord(quint64 number) const
{
    if (number >= quint64(recordCount()))
        return -1;
    const qint64 logical = qint64(number) * m_geometry.recordSize;
    const auto extent = std::partition_point(
        m_mft.extents.cbegin(), m_mft.extents.cend(),
        [logical](const Extent &candidate) { return candidate.logicalEnd() <= logical; });
    if (extent == m_mft.extents.cend() || extent->logical > logical)
        return -1;
    return extent->physical + (logical - extent->logical);
}

bool NtfsVolume::readRecord(quint64 number, Record *record) const
{
    const qint64 logical = qint64(number) * m_geometry.recordSize;
    if (offsetOfRecord(number) < 0)
        return false;
    QByteArray bytes(int(m_geometry.recordSize), Qt::Uninitialized);
    ContentReader(m_media, m_mft).read(logical, bytes.data(), bytes.size());
    if (!parseRecord(bytes.constData(), bytes.size(), record))
        return false;
    if (record->number == kUnknownNumber)
        record->number = quint32(number);
    return true;
}

FileFacts NtfsVolume::gather(const Record &base, const QVector<quint64> &continuations) const
{
    GatherSources sources;
    sources.record = [this](quint64 number, Record *record) {
        return readRecord(number, record);
    };
    sources.media = [this](qint64 offset, qint64 length) {
        return m_media.read(offset, length);
    };
    sources.clusterSize = m_geometry.clusterSize;
    sources.continuations = continuations;
    return gatherFile(base, sources);
}

bool NtfsVolume::streamOf(quint64 number, const QByteArray &name, FileContent *content) const
{
    Record record;
    if (!readRecord(number, &record))
        return false;
    const FileFacts facts = gather(record);
    const Stream *stream = facts.stream(name);
    bool isMapComplete = false;
    if (!stream)
        return false;
    *content = contentOf(*stream, m_geometry.clusterSize, m_media.size(), &isMapComplete);
    return true;
}

bool ntfsFreeRanges(const NtfsVolume &volume, Ranges *ranges, QString *error)
{
    FileContent bitmap;
    const qint64 clusters = volume.geometry().clusters();
    if (!volume.streamOf(kBitmapRecord, QByteArray(), &bitmap) ||
        bitmap.size < (clusters + 7) / 8) {
        *error = QStringLiteral("卷的簇位图（$Bitmap）已损坏");
        return false;
    }
    ContentReader reader(volume.media(), bitmap);
    FreeRangeBuilder builder(volume.geometry().clusterSize, ranges);
    QByteArray bytes(int(kChunk), Qt::Uninitialized);
    for (qint64 at = 0; at * 8 < clusters; at += bytes.size()) {
        reader.read(at, bytes.data(), qMin(kChunk, (clusters + 7) / 8 - at));
        for (int i = 0; i < bytes.size() && (at + i) * 8 < clusters; ++i)
            builder.addByte(quint8(bytes.at(i)), (at + i) * 8,
                            int(qMin(qint64(8), clusters - (at + i) * 8)));
    }
    // Zeros in place of what could not be read would call used clusters free.
    if (reader.lostBytes() > 0) {
        ranges->clear();
        *error = QStringLiteral("卷的簇位图（$Bitmap）读取失败");
        return false;
    }
    return true;
}

} // namespace services::recoveryd::ntfs
