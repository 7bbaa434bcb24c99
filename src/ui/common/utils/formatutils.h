#pragma once

#include <QString>

namespace ui {
namespace common {
namespace utils {

/// "0 B", "512 B", "1.5 KB", "2.0 GB": 1024 to the unit, one decimal from KB on. Negative is "-".
QString formatByteSize(qint64 bytes);

/// Local time "yyyy-MM-dd HH:mm" of milliseconds since the epoch; `unknown` when not above 0.
QString formatTimestamp(qint64 msSinceEpoch, const QString &unknown = QStringLiteral("未知"));

/// Text as a tool tip that is never taken for rich text: file names may hold markup.
QString plainTip(const QString &text);

} // namespace utils
} // namespace common
} // namespace ui
