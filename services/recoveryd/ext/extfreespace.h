#pragma once

#include "recoveryd/devices/range.h"
#include "recoveryd/ext/extvolume.h"

namespace services {
namespace recoveryd {

/// The blocks that the block bitmaps call free, as byte ranges of the volume. Neighbours are joined
/// across groups. Fails if any bitmap cannot be read, and for volumes allocated in clusters.
[[nodiscard]] bool readFreeRanges(const ExtVolume &ext, Ranges *ranges, QString *error);

} // namespace recoveryd
} // namespace services
