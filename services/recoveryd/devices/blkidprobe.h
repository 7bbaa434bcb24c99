#pragma once

#include "recoveryd/devices/filesystemprobe.h"

namespace services::recoveryd {

/// What libblkid recognises on a volume: also what this service cannot look into, such as members
/// of LVM and RAID, encrypted volumes and rarer file systems. Unknown for an image that is no file.
FileSystem probeWithBlkid(const Volume &volume);

} // namespace services::recoveryd
