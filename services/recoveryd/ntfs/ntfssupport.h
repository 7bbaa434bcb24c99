#pragma once

#include "recoveryd/scan/filesystemsupport.h"

namespace services::recoveryd {

/// The family of NTFS.
FileSystemSupport ntfsSupport();

} // namespace services::recoveryd
