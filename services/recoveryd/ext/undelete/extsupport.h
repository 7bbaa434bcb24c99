#pragma once

#include "recoveryd/scan/filesystemsupport.h"

namespace services::recoveryd {

/// The family of ext2, ext3 and ext4.
FileSystemSupport extSupport();

} // namespace services::recoveryd
