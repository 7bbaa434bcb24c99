#include "recoveryd/content/filecontent.h"

namespace services::recoveryd {

Ranges FileContent::storedRanges() const
{
    Ranges ranges;
    for (const Extent &extent : extents)
        ranges.append({extent.physical, extent.length});
    for (const PackedExtent &extent : packed)
        for (const Range &range : extent.stored)
            ranges.append(range);
    return joinedRanges(ranges);
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

void FileContent::cutTo(qint64 newSize)
{
    size = newSize;
    while (!extents.isEmpty() && extents.last().logical >= size)
        extents.removeLast();
    if (!extents.isEmpty())
        extents.last().length = qMin(extents.last().length, size - extents.last().logical);
}

} // namespace services::recoveryd
