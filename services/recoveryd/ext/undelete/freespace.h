#pragma once

#include "recoveryd/devices/range.h"
#include "recoveryd/ext/undelete/blockmap.h"

namespace services::recoveryd::ext {

/// What the block bitmaps call free, as byte ranges of the volume; neighbours are joined across
/// groups. A group whose bitmap is damaged counts as in use. Fails if that is true of all.
[[nodiscard]] bool readFreeSpace(const Blocks &blocks, Ranges *ranges, QString *error);

} // namespace services::recoveryd::ext
