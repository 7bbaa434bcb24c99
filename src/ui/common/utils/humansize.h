#pragma once

#include <QString>

namespace ui {
namespace common {
namespace utils {

/// Bytes of a size for people: "12.4 MB", "1,024 KB", "2 GiB", "512". 1024 to the unit; a missing
/// or unknown unit counts as bytes. 0 for a text that is no number; held within the type's limits.
qint64 parseHumanSizeToBytes(const QString &text);

} // namespace utils
} // namespace common
} // namespace ui
