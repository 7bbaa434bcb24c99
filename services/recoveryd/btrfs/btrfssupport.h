#pragma once

#include "recoveryd/scan/filesystemsupport.h"

namespace services::recoveryd {

/// The family of Btrfs.
FileSystemSupport btrfsSupport();

} // namespace services::recoveryd
