#include "recoveryd/devices/range.h"

#include <algorithm>

namespace services {
namespace recoveryd {

Ranges joinedRanges(Ranges ranges)
{
    std::sort(ranges.begin(), ranges.end(),
              [](const Range &a, const Range &b) { return a.start < b.start; });
    int kept = 0;
    for (const Range &range : qAsConst(ranges)) {
        if (range.length <= 0)
            continue;
        Range *const last = kept > 0 ? &ranges[kept - 1] : nullptr;
        if (last && range.start <= last->end())
            last->length = qMax(last->end(), range.end()) - last->start;
        else
            ranges[kept++] = Range(range);
    }
    ranges.resize(kept);
    return ranges;
}

Ranges subtracted(const Ranges &whole, const Ranges &holes)
{
    Ranges left;
    auto hole = holes.begin();
    for (const Range &range : whole) {
        qint64 at = range.start;
        while (hole != holes.end() && hole->end() <= at)
            ++hole;
        for (auto it = hole; it != holes.end() && it->start < range.end(); ++it) {
            if (it->start > at)
                left.append({at, it->start - at});
            at = qMax(at, it->end());
        }
        if (at < range.end())
            left.append({at, range.end() - at});
    }
    return left;
}

Ranges intersected(const Ranges &a, const Ranges &b)
{
    Ranges both;
    auto other = b.begin();
    for (const Range &range : a) {
        while (other != b.end() && other->end() <= range.start)
            ++other;
        for (auto it = other; it != b.end() && it->start < range.end(); ++it) {
            const qint64 start = qMax(range.start, it->start);
            both.append({start, qMin(range.end(), it->end()) - start});
        }
    }
    return both;
}

qint64 overlapOf(const Ranges &ranges, const Ranges &other)
{
    qint64 bytes = 0;
    for (const Range &range : ranges) {
        auto it = std::partition_point(other.begin(), other.end(),
                                       [&range](const Range &o) { return o.end() <= range.start; });
        for (; it != other.end() && it->start < range.end(); ++it)
            bytes += qMin(range.end(), it->end()) - qMax(range.start, it->start);
    }
    return bytes;
}

} // namespace recoveryd
} // namespace services
