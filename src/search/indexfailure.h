#pragma once

#include <QString>

namespace search {

/// Why the index file could not be read or written.
enum class IndexFailure { DiskFull, ReadOnly, Damaged, NoAccess, Locked, Device, Other };

/// Judges by the driver's text of an error.
IndexFailure indexFailure(const QString &driverText);

/// The reason for the user, followed by the driver's text.
QString indexFailureText(const QString &driverText);

} // namespace search
