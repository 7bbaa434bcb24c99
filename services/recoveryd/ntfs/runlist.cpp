#include "recoveryd/ntfs/runlist.h"

namespace services::recoveryd::ntfs {

namespace {

/// Keeps products with the largest cluster size within 63 bits.
constexpr qint64 kMaxClusters = qint64(1) << 40;

/// A little-endian two's complement number of `width` bytes.
qint64 signedNumber(const char *at, int width)
{
    quint64 value = quint8(at[width - 1]) >= 0x80 ? ~quint64(0) : 0;
    for (int i = width - 1; i >= 0; --i)
        value = (value << 8) | quint8(at[i]);
    return qint64(value);
}

} // namespace

bool decodeRuns(const Record &record, const Attribute &attribute, QVector<Run> *runs)
{
    const char *bytes = record.bytes.constData();
    qint64 vcn = attribute.lowestVcn;
    qint64 lcn = 0;
    for (int at = attribute.runsAt; at < attribute.runsEnd;) {
        const int head = quint8(bytes[at++]);
        if (head == 0)
            break;
        const int countWidth = head & 0x0F;
        const int placeWidth = head >> 4;
        if (countWidth == 0 || countWidth > 8 || placeWidth > 8 ||
            at + countWidth + placeWidth > attribute.runsEnd)
            return false;
        const qint64 count = signedNumber(bytes + at, countWidth);
        at += countWidth;
        if (count <= 0 || count > kMaxClusters || vcn > kMaxClusters)
            return false;
        qint64 place = Run::kHole;
        if (placeWidth > 0) {
            const qint64 step = signedNumber(bytes + at, placeWidth);
            at += placeWidth;
            if (step > kMaxClusters || step < -kMaxClusters)
                return false;
            lcn += step;
            if (lcn < 0 || lcn > kMaxClusters)
                return false;
            place = lcn;
        }
        runs->append({vcn, place, count});
        vcn += count;
    }
    // highestVcn is 0 in some writers' single pieces, so only a longer one is held against the map.
    return attribute.highestVcn < vcn;
}

} // namespace services::recoveryd::ntfs
