#pragma once

#include "recoveryd/scan/filesystemsupport.h"

namespace services::recoveryd {

/// The family of exFAT.
FileSystemSupport exfatSupport();

} // namespace services::recoveryd
