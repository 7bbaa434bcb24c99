#pragma once

#include <QtGlobal>

#include <limits>

/// Sums of sizes: a sparse file may claim up to 8 EiB, so that a few of them leave the range.
/// Operands are not negative.
inline qint64 saturatingSum(qint64 a, qint64 b)
{
    const qint64 most = std::numeric_limits<qint64>::max();
    return a > most - b ? most : a + b;
}

inline qint64 saturatingProduct(qint64 a, qint64 b)
{
    const qint64 most = std::numeric_limits<qint64>::max();
    return b != 0 && a > most / b ? most : a * b;
}
