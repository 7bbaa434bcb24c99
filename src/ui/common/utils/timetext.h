#pragma once

#include <QJsonValue>
#include <QString>

namespace ui {
namespace common {
namespace utils {

/// A time that a service sent, as shown: a number is milliseconds since the epoch, an ISO text
/// becomes local time, any other text stands as it is. "--" without a time.
QString timeText(const QJsonValue &time);

} // namespace utils
} // namespace common
} // namespace ui
