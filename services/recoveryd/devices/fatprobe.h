#pragma once

#include "recoveryd/devices/filesystemprobe.h"

namespace services {
namespace recoveryd {

/// FAT12, FAT16 and FAT32. The used size comes from FAT32's own note of it, or else from the table
/// itself where that is at most 16 MiB.
FileSystem probeFat(const Volume &volume);
/// exFAT. The used size comes from the percentage in the boot sector.
FileSystem probeExfat(const Volume &volume);

} // namespace recoveryd
} // namespace services
