#pragma once

#include <QtGlobal>

namespace analyzersettings {

/// A size as a number and the largest unit that divides it evenly.
struct SizeInUnit
{
    int number = 0;
    int unit = 0; ///< 0 KB, 1 MB, 2 GB.
};
/// Bytes below a KB are rounded up to one.
SizeInUnit sizeInLargestUnit(qint64 bytes);
qint64 bytesOf(const SizeInUnit &size);

} // namespace analyzersettings
