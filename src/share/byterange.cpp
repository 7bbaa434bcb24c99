#include "share/byterange.h"

#include <QStringList>

namespace share {

ByteRange rangeFor(const QString &header, qint64 total)
{
    ByteRange range;
    range.end = total - 1;
    range.length = total;
    const QString prefix = QStringLiteral("bytes=");
    if (!header.startsWith(prefix))
        return range;
    const QStringList parts = header.mid(prefix.size()).split(QLatin1Char('-'));
    if (parts.size() != 2 || (parts.at(0).isEmpty() && parts.at(1).isEmpty()))
        return range;

    bool firstOk = true;
    bool secondOk = true;
    const qint64 first = parts.at(0).isEmpty() ? 0 : parts.at(0).toLongLong(&firstOk);
    const qint64 second = parts.at(1).isEmpty() ? 0 : parts.at(1).toLongLong(&secondOk);
    if (!firstOk || !secondOk)
        return range;
    if (parts.at(0).isEmpty()) {
        range.start = total - second;
    } else {
        range.start = first;
        if (!parts.at(1).isEmpty())
            range.end = second;
    }
    range.isPartial = range.start >= 0 && range.start <= range.end && range.end < total;
    if (range.isPartial)
        range.length = range.end - range.start + 1;
    return range;
}

} // namespace share
