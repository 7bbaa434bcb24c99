#pragma once

#include <QString>

namespace search {

/// Why the index file could not be read or written.
enum class IndexFailure { DiskFull, ReadOnly, Damaged, NoAccess, Locked, Device, Other };

/// Judges by the driver's text of an error.
IndexFailure indexFailure(const QString &driverText);

/// The reason for the user, followed by SQLite's own words for it; the driver's text if it is not
/// known.
QString indexFailureText(const QString &driverText);

} // namespace search
