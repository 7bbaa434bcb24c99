#include "ui/pages/analyzersettingsdialog/sizeunits.h"

#include <limits>

namespace analyzersettings {

namespace {

constexpr qint64 kKilo = 1024;
constexpr int kUnits = 3;

} // namespace

SizeInUnit sizeInLargestUnit(qint64 bytes)
{
    qint64 number = qMax<qint64>(0, (bytes + kKilo - 1) / kKilo);
    SizeInUnit size;
    while (size.unit < kUnits - 1 && number > 0 && number % kKilo == 0) {
        number /= kKilo;
        ++size.unit;
    }
    size.number = int(qMin<qint64>(number, std::numeric_limits<int>::max()));
    return size;
}

qint64 bytesOf(const SizeInUnit &size)
{
    qint64 bytes = qint64(size.number) * kKilo;
    for (int unit = 0; unit < size.unit; ++unit)
        bytes *= kKilo;
    return bytes;
}

} // namespace analyzersettings
