#pragma once

#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/scan/scanner.h"
#include "recoveryd/scan/scanrequest.h"

#include <memory>
#include <vector>

namespace services {
namespace recoveryd {

/// The scanners that answer the request, in the order in which they run. Reads bitmaps, so it may
/// take a while. Free space is known of ext file systems only; of others, and where the bitmaps are
/// damaged, the whole partition is looked at, and the phase text says so.
///
/// A quick scan looks where files of this file system can begin, in free space. A deep scan looks
/// at every sector, and in the whole partition if it is asked to.
std::vector<std::unique_ptr<Scanner>> planScan(const Device &device, const ScanRequest &request);

} // namespace recoveryd
} // namespace services
