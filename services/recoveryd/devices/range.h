#pragma once

#include <QVector>

namespace services {
namespace recoveryd {

/// A stretch of a volume in bytes.
struct Range
{
    qint64 start = 0;
    qint64 length = 0;

    qint64 end() const { return start + length; }
};

inline bool operator==(const Range &a, const Range &b)
{
    return a.start == b.start && a.length == b.length;
}

using Ranges = QVector<Range>; ///< Ascending, without overlap.

inline qint64 totalLength(const Ranges &ranges)
{
    qint64 total = 0;
    for (const Range &range : ranges)
        total += range.length;
    return total;
}

} // namespace recoveryd
} // namespace services
