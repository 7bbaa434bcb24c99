#pragma once

#include "recoveryd/scan/filesystemsupport.h"

namespace services::recoveryd {

/// The family of FAT.
FileSystemSupport fatSupport();

} // namespace services::recoveryd
