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

/// Any stretches in ascending order, those that overlap or touch joined, empty ones left out.
Ranges joinedRanges(Ranges ranges);
/// `whole` without `holes`.
Ranges subtracted(const Ranges &whole, const Ranges &holes);
/// What is in both.
Ranges intersected(const Ranges &a, const Ranges &b);
/// How many bytes are in both. Fast where `ranges` are few and `other` are many.
qint64 overlapOf(const Ranges &ranges, const Ranges &other);

} // namespace recoveryd
} // namespace services
