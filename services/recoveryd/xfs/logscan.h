#pragma once

#include "recoveryd/xfs/directoryreader.h"
#include "recoveryd/xfs/history.h"

namespace services::recoveryd::xfs {

/// Where the history in the log goes.
struct LogScanTargets
{
    History &history;
    TreeHistory &trees;
    DirectoryReader &directories;
};

/// Reads all of the log's history. False if `goesOn` ended it.
[[nodiscard]] bool scanLog(const XfsVolume &volume, const LogScanTargets &targets,
                           const Log::GoesOn &goesOn);

} // namespace services::recoveryd::xfs
