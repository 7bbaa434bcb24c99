#include "recoveryd/ntfs/emptiedstream.h"

#include "recoveryd/devices/bytes.h"

namespace services::recoveryd::ntfs {

namespace {

/// Where the emptied list begins, 0 if the record's data is none of that kind.
int placeOfList(const Record &record)
{
    constexpr int kRunsOffset = 0x40;
    const Attribute *data = record.find(kData);
    if (!data || (data->flags & (kCompressionMask | kEncrypted | kSparse)) != 0)
        return 0;
    const Fields fields(record.bytes);
    int place = 0;
    if (!data->isResident && data->dataSize == 0 && data->lowestVcn == 0)
        place = data->runsAt;
    else if (data->isResident && data->valueLength == 0 &&
             fields.le16(data->at + 0x20) == kRunsOffset)
        // Made resident again; of the longer header before, the end is left.
        place = data->at + kRunsOffset;
    return place > 0 && place < record.bytes.size() && fields.u8(place) == 0 ? place : 0;
}

/// Whether `width` bytes are as few as the number needs, as all drivers write them.
bool isShortest(const char *number, int width)
{
    if (width < 2)
        return true;
    const bool isNegative = (quint8(number[width - 2]) & 0x80) != 0;
    const quint8 top = quint8(number[width - 1]);
    return !(top == 0 && !isNegative) && !(top == 0xFF && isNegative);
}

bool areInside(const QVector<Run> &runs, qint64 clusters)
{
    for (const Run &run : runs)
        if (run.lcn != Run::kHole && (run.count > clusters || run.lcn > clusters - run.count))
            return false;
    return !runs.isEmpty() && runs.first().lcn > 0;
}

bool restoreRuns(const Record &record, int place, qint64 clusters, QVector<Run> *runs)
{
    constexpr int kMaxCountWidth = 4;
    constexpr int kMaxPlaceWidth = 5;
    if (place + 1 + kMaxCountWidth + kMaxPlaceWidth > record.bytes.size())
        return false;
    Record restored = record;
    Attribute list;
    list.runsAt = place;
    list.runsEnd = record.bytes.size();
    const char *numbers = record.bytes.constData() + place + 1;
    for (int countWidth = 1; countWidth <= kMaxCountWidth; ++countWidth) {
        for (int placeWidth = 1; placeWidth <= kMaxPlaceWidth; ++placeWidth) {
            if (!isShortest(numbers, countWidth) || !isShortest(numbers + countWidth, placeWidth))
                continue;
            restored.bytes[place] = char(placeWidth << 4 | countWidth);
            runs->clear();
            if (decodeRuns(restored, list, runs) && areInside(*runs, clusters))
                return true;
        }
    }
    return false;
}

qint64 estimatedSize(const NtfsVolume &volume, const QVector<Run> &runs)
{
    const qint64 clusterSize = volume.geometry().clusterSize;
    const Run &last = runs.last();
    qint64 used = clusterSize;
    if (last.lcn != Run::kHole) {
        const QByteArray bytes =
            volume.media().read((last.lcn + last.count - 1) * clusterSize, clusterSize);
        while (used > 0 && bytes.at(int(used - 1)) == '\0')
            --used;
    }
    return (last.vcnEnd() - 1) * clusterSize + used;
}

} // namespace

bool findEmptiedStream(const NtfsVolume &volume, const Record &record, Stream *stream)
{
    const int place = placeOfList(record);
    if (place == 0 || !restoreRuns(record, place, volume.geometry().clusters(), &stream->runs))
        return false;
    stream->size = estimatedSize(volume, stream->runs);
    stream->initialisedSize = stream->size;
    stream->isSizeExact = false;
    return true;
}

} // namespace services::recoveryd::ntfs
