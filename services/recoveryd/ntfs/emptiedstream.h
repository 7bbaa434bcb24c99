#pragma once

#include "recoveryd/ntfs/ntfsvolume.h"

namespace services::recoveryd::ntfs {

/// The data of a file before it was cut to nothing: drivers end the list of runs by writing a zero
/// over its first byte and leave the rest. That byte held the widths of the first run's two
/// numbers, of which the shortest pair that makes sense is taken. The size is an estimate: drivers
/// fill the last cluster with zeros, so it ends with the last other byte there. False if there is
/// no such list.
[[nodiscard]] bool findEmptiedStream(const NtfsVolume &volume, const Record &record,
                                     Stream *stream);

} // namespace services::recoveryd::ntfs
