#pragma once

#include "recoveryd/devices/range.h"
#include "recoveryd/ext/extvolume.h"

namespace services {
namespace recoveryd {

/// The blocks that the block bitmaps call free, as byte ranges of the volume. Neighbours are joined
/// across groups. Groups whose bitmap is damaged count as in use; fails if all are.
[[nodiscard]] bool readFreeRanges(const ExtVolume &ext, Ranges *ranges, QString *error);

} // namespace recoveryd
} // namespace services
