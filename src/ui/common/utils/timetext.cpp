#include "ui/common/utils/timetext.h"

#include "core/jsonnumber.h"
#include "ui/common/utils/formatutils.h"

#include <QDateTime>

namespace ui {
namespace common {
namespace utils {

QString timeText(const QJsonValue &time)
{
    const QString nothing = QStringLiteral("--");
    if (time.isDouble())
        return formatTimestamp(core::toInt64(time), nothing);
    const QString text = time.toString();
    if (text.contains(QLatin1Char('T'))) {
        const QDateTime parsed = QDateTime::fromString(text, Qt::ISODate);
        if (parsed.isValid())
            return parsed.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    }
    return text.isEmpty() ? nothing : text;
}

} // namespace utils
} // namespace common
} // namespace ui
