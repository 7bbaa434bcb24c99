#include "ui/common/utils/formatutils.h"

#include <QDateTime>

namespace ui {
namespace common {
namespace utils {

QString formatByteSize(qint64 bytes)
{
    if (bytes < 0)
        return QStringLiteral("-");
    if (bytes < 1024)
        return QStringLiteral("%1 B").arg(bytes);
    static const char *const kUnits[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
    double value = static_cast<double>(bytes) / 1024.0;
    int unit = 0;
    // 1023.95 would print as "1024.0", so the next unit starts where the rounding does.
    while (value >= 1023.95 && unit < 5) {
        value /= 1024.0;
        ++unit;
    }
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 1).arg(QLatin1String(kUnits[unit]));
}

QString formatTimestamp(qint64 msSinceEpoch, const QString &unknown)
{
    if (msSinceEpoch <= 0)
        return unknown;
    return QDateTime::fromMSecsSinceEpoch(msSinceEpoch)
        .toString(QStringLiteral("yyyy-MM-dd HH:mm"));
}

QString plainTip(const QString &text)
{
    QString html = text.toHtmlEscaped();
    html.replace(QLatin1Char('\n'), QStringLiteral("<br>"));
    return QStringLiteral("<qt>%1</qt>").arg(html);
}

} // namespace utils
} // namespace common
} // namespace ui
