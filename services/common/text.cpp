#include "common/text.h"

#include <QUuid>

#include <algorithm>

namespace services {

QString sizeText(qint64 bytes)
{
    static const char *const units[] = {"KB", "MB", "GB", "TB", "PB"};
    if (bytes < 1024)
        return QStringLiteral("%1 B").arg(bytes);
    double value = double(bytes) / 1024;
    int unit = 0;
    while (value >= 1024 && unit < 4) {
        value /= 1024;
        ++unit;
    }
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 1).arg(QLatin1String(units[unit]));
}

QString timeText(const QDateTime &time)
{
    return time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QString newId()
{
    return QUuid::createUuid().toString().mid(1, 36);
}

bool isId(const QString &text)
{
    return !text.isEmpty() && text.size() <= 64 &&
           std::all_of(text.begin(), text.end(), [](QChar c) {
               return c.unicode() < 128 && (c.isLetterOrNumber() || c == QLatin1Char('-'));
           });
}

} // namespace services
