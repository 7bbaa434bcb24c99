#include "recoveryd/content/filecontent.h"

#include <algorithm>

namespace services::recoveryd {

Ranges FileContent::storedRanges() const
{
    Ranges ranges;
    for (const Extent &extent : extents)
        ranges.append({extent.physical, extent.length});
    for (const PackedExtent &extent : packed)
        for (const Range &range : extent.stored)
            ranges.append(range);
    std::sort(ranges.begin(), ranges.end(),
              [](const Range &a, const Range &b) { return a.start < b.start; });
    Ranges joined;
    for (const Range &range : qAsConst(ranges)) {
        if (range.length <= 0)
            continue;
        if (!joined.isEmpty() && range.start <= joined.last().end())
            joined.last().length = qMax(joined.last().end(), range.end()) - joined.last().start;
        else
            joined.append(range);
    }
    return joined;
}

void FileContent::shift(qint64 by)
{
    for (Extent &extent : extents)
        extent.physical += by;
    for (PackedExtent &extent : packed)
        for (Range &range : extent.stored)
            range.start += by;
}

void FileContent::append(qint64 logical, qint64 physical, qint64 length)
{
    if (length <= 0)
        return;
    if (!extents.isEmpty() && extents.last().logicalEnd() == logical &&
        extents.last().physicalEnd() == physical)
        extents.last().length += length;
    else
        extents.append({logical, physical, length});
}

} // namespace services::recoveryd
