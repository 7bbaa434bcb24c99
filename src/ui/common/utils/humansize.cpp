#include "ui/common/utils/humansize.h"

#include <QStringList>

#include <cmath>
#include <limits>

namespace ui {
namespace common {
namespace utils {

namespace {

double unitFactor(QString unit)
{
    if (unit.size() > 1 && unit.endsWith(QLatin1Char('B')))
        unit.replace(QLatin1String("IB"), QLatin1String("B"));
    static const char *const kUnits[] = {"KB", "MB", "GB", "TB", "PB"};
    double factor = 1.0;
    for (const char *name : kUnits) {
        factor *= 1024.0;
        if (unit == QLatin1String(name))
            return factor;
    }
    return 1.0;
}

} // namespace

qint64 parseHumanSizeToBytes(const QString &text)
{
    QString plain = text.toUpper();
    plain.remove(QLatin1Char(','));
    // simplified() makes one blank of any run of them, also of tabs and wide blanks.
    const QStringList parts = plain.simplified().split(QLatin1Char(' '));
    bool isNumber = false;
    const double value = parts.first().toDouble(&isNumber);
    // "inf" and "nan" are numbers to the parser.
    if (!isNumber || !std::isfinite(value))
        return 0;
    const double bytes = value * (parts.size() > 1 ? unitFactor(parts.at(1)) : 1.0);
    constexpr double kLimit = 9223372036854775808.0; // 2^63, the first value that does not fit
    if (bytes >= kLimit)
        return std::numeric_limits<qint64>::max();
    if (bytes < -kLimit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(bytes);
}

} // namespace utils
} // namespace common
} // namespace ui
