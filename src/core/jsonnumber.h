#pragma once

#include <QJsonValue>
#include <QVariant>

#include <limits>

namespace core {

/// A JSON number as a 64-bit integer: whole where the parser kept it whole, otherwise rounded
/// towards zero and held within the type's limits; 0 for anything that is no number.
inline qint64 toInt64(const QJsonValue &value)
{
    const QVariant number = value.toVariant();
    if (number.type() == QVariant::LongLong)
        return number.toLongLong();
    const double real = value.toDouble();
    constexpr double limit = 9223372036854775808.0; // 2^63, the first value that does not fit
    if (real >= limit)
        return std::numeric_limits<qint64>::max();
    if (real < -limit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(real);
}

} // namespace core
