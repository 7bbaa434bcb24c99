#pragma once

#include <QJsonValue>

#include <limits>

namespace core {

/// A JSON number as a 64-bit integer, rounded towards zero and held within the type's limits; 0 for
/// anything that is no number. Exact up to 2^53, since JSON numbers are doubles here.
inline qint64 toInt64(const QJsonValue &value)
{
    constexpr double kLimit = 9223372036854775808.0; // 2^63, the first value that does not fit
    const double number = value.toDouble();
    if (number >= kLimit)
        return std::numeric_limits<qint64>::max();
    if (number < -kLimit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(number);
}

} // namespace core
