#pragma once

#include "recoveryd/scan/filesystemsupport.h"

namespace services::recoveryd {

/// The family of XFS.
FileSystemSupport xfsSupport();

} // namespace services::recoveryd
