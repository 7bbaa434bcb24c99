#pragma once

#include "recoveryd/devices/filesystemprobe.h"
#include "recoveryd/devices/mediareader.h"
#include "recoveryd/scan/scanrequest.h"

#include <memory>

namespace services::recoveryd {

/// What a scanner of a file system is given.
struct ScanContext
{
    std::shared_ptr<const MediaReader> media; ///< The volume, from its first byte.
    FileSystem fileSystem;                    ///< As probed; unknown where the head is damaged.
    ScanRequest request;
    /// The volume is damaged, formatted since, or lost: files that still exist are findings, too.
    bool listsExisting = false;
};

} // namespace services::recoveryd
