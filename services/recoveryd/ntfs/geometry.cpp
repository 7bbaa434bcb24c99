#include "recoveryd/ntfs/geometry.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/ntfs/filefacts.h"

namespace services::recoveryd::ntfs {

namespace {

constexpr qint64 kBootSector = 512;
constexpr qint64 kMaxCluster = 2 * 1024 * 1024;
constexpr qint64 kMaxRecord = 16384;
constexpr qint64 kTail = 1024 * 1024;
constexpr quint32 kMirrorNumber = 1;
constexpr quint32 kBadClustersNumber = 8;

/// A size given in clusters, or, if negative, as a binary logarithm.
qint64 codedSize(quint8 code, qint64 clusterSize)
{
    const int value = qint8(code);
    if (value > 0)
        return value * clusterSize;
    return value > -31 ? qint64(1) << -value : 0;
}

qint64 clusterSectors(quint8 code)
{
    if (code <= 128)
        return isPowerOfTwo(code) ? code : 0;
    return code >= 0xF4 ? qint64(1) << (256 - code) : 0; // since Windows 10 1709
}

bool isTableStart(const MediaReader &media, qint64 offset, qint64 recordSize)
{
    const QByteArray bytes = media.read(offset, recordSize);
    Record record;
    return parseRecord(bytes.constData(), bytes.size(), &record) && record.isInUse() &&
           (record.number == kUnknownNumber || record.number == 0) && record.find(kData);
}

bool findBackup(const MediaReader &media, Geometry *geometry)
{
    // Behind the volume's last sector; the partition may be somewhat larger. NT 4 keeps it in the
    // middle.
    const qint64 start = qMax(qint64(0), media.size() - kTail) / kBootSector * kBootSector;
    const QByteArray tail = media.read(start, qMin(media.size(), kTail));
    for (qint64 at = (tail.size() - 1) / kBootSector * kBootSector; at >= 0; at -= kBootSector) {
        if (parseBootSector(tail.mid(int(at), int(kBootSector)), geometry) &&
            hasTable(media, 0, *geometry))
            return true;
    }
    const qint64 middle = media.size() / 2 / kBootSector * kBootSector;
    return parseBootSector(media.read(middle, kBootSector), geometry) &&
           hasTable(media, 0, *geometry);
}

/// Where the usual tools put the file table: cluster 4, or 3 GiB into the volume.
bool findUsualTable(const MediaReader &media, Geometry *geometry)
{
    QVector<qint64> offsets = {16384, qint64(786432) * 4096};
    for (qint64 clusterSize = 512; clusterSize <= kMaxCluster; clusterSize *= 2) {
        offsets.append(4 * clusterSize);
        offsets.append(media.size() / clusterSize / 3 * clusterSize);
    }
    for (qint64 offset : qAsConst(offsets)) {
        qint64 volumeStart = 0;
        if (offset < media.size() && deriveGeometry(media, offset, geometry, &volumeStart) &&
            volumeStart == 0)
            return true;
    }
    return false;
}

/// Place and cluster count of the first run of a record's data.
bool firstRun(const Record &record, Run *run)
{
    const Attribute *data = record.find(kData);
    QVector<Run> runs;
    if (!data || data->isResident || !decodeRuns(record, *data, &runs) || runs.isEmpty() ||
        runs.first().lcn == Run::kHole)
        return false;
    *run = runs.first();
    return true;
}

bool recordAt(const MediaReader &media, qint64 offset, qint64 recordSize, quint32 number,
              Record *record)
{
    const QByteArray bytes = media.read(offset + number * recordSize, recordSize);
    return parseRecord(bytes.constData(), bytes.size(), record) && record->isInUse() &&
           (record->number == kUnknownNumber || record->number == number);
}

} // namespace

bool hasTable(const MediaReader &media, qint64 start, const Geometry &geometry)
{
    return isTableStart(media, start + geometry.mftOffset, geometry.recordSize) ||
           isTableStart(media, start + geometry.mirrorOffset, geometry.recordSize);
}

bool parseBootSector(const QByteArray &bytes, Geometry *geometry)
{
    const Fields fields(bytes);
    if (bytes.size() < kBootSector || !fields.isAt(3, "NTFS    ", 8))
        return false;
    Geometry read;
    read.sectorSize = fields.le16(0x0B);
    if (read.sectorSize < 256 || read.sectorSize > 4096 || !isPowerOfTwo(quint32(read.sectorSize)))
        return false;
    read.clusterSize = clusterSectors(fields.u8(0x0D)) * read.sectorSize;
    if (read.clusterSize < 256 || read.clusterSize > kMaxCluster)
        return false;
    const quint64 sectors = fields.le64(0x28);
    const quint64 table = fields.le64(0x30);
    const quint64 mirror = fields.le64(0x38);
    constexpr quint64 kMaxSectors = quint64(1) << 50;
    if (sectors == 0 || sectors > kMaxSectors)
        return false;
    read.size = qint64(sectors) * read.sectorSize;
    if (table == 0 || table >= quint64(read.clusters()) || mirror >= quint64(read.clusters()))
        return false;
    read.mftOffset = qint64(table) * read.clusterSize;
    read.mirrorOffset = qint64(mirror) * read.clusterSize;
    read.recordSize = codedSize(fields.u8(0x40), read.clusterSize);
    read.indexBlockSize = codedSize(fields.u8(0x44), read.clusterSize);
    if (read.recordSize < 512 || read.recordSize > kMaxRecord ||
        !isPowerOfTwo(quint32(read.recordSize)) || read.indexBlockSize < 512 ||
        read.indexBlockSize > kMaxCluster)
        return false;
    *geometry = read;
    return true;
}

bool deriveGeometry(const MediaReader &media, qint64 offset, Geometry *geometry,
                    qint64 *volumeStart)
{
    const QByteArray head = media.read(offset, kMaxRecord);
    Record table;
    Run tableRun;
    if (!parseRecord(head.constData(), head.size(), &table) || !table.isInUse() ||
        (table.number != kUnknownNumber && table.number != 0) || !firstRun(table, &tableRun))
        return false;
    Geometry derived;
    derived.recordSize = table.bytes.size();
    derived.clusterSize = clusterSizeOf(table);
    if (derived.clusterSize == 0)
        return false;
    // The record may be the mirror's copy, so the records behind it and the place of the other
    // copy decide.
    Record mirror;
    Run mirrorRun;
    Record badClusters;
    if (!recordAt(media, offset, derived.recordSize, kMirrorNumber, &mirror) ||
        !firstRun(mirror, &mirrorRun) ||
        !recordAt(media, offset, derived.recordSize, kBadClustersNumber, &badClusters))
        return false;
    *volumeStart = offset - tableRun.lcn * derived.clusterSize;
    derived.mftOffset = tableRun.lcn * derived.clusterSize;
    derived.mirrorOffset = mirrorRun.lcn * derived.clusterSize;
    // A sparse stream as large as the volume.
    const Attribute *all = badClusters.find(kData, "$Bad");
    if (*volumeStart < 0 || !all || all->isResident || all->dataSize <= 0 ||
        all->dataSize > (qint64(1) << 56) ||
        !isTableStart(media, *volumeStart + derived.mirrorOffset, derived.recordSize))
        return false;
    derived.size = all->dataSize;
    *geometry = derived;
    return true;
}

bool findGeometry(const MediaReader &media, Geometry *geometry)
{
    Geometry head;
    const bool hasHead = parseBootSector(media.read(0, kBootSector), &head);
    if (hasHead && hasTable(media, 0, head)) {
        *geometry = head;
        return true;
    }
    return findBackup(media, geometry) || findUsualTable(media, geometry);
}

} // namespace services::recoveryd::ntfs
