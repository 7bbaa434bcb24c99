#pragma once

#include "recoveryd/devices/mediareader.h"
#include "recoveryd/fat/clustergrid.h"
#include "recoveryd/scan/scanner.h"

#include <functional>

namespace services::recoveryd::fat {

/// Reads all clusters that begin in `ranges`, in large sequential pieces, and shows them: `bytes`
/// is the cluster, or its first 4 MiB. `done` counts the bytes on for the progress. False if the
/// observer ended it.
[[nodiscard]] bool
sweepClusters(const MediaReader &media, const ClusterGrid &grid, const Ranges &ranges,
              ScanObserver &observer, qint64 *done,
              const std::function<void(quint32 cluster, const char *bytes, int length)> &visit);

/// What a quick scan of a healthy volume reads of the free space. Bytes.
constexpr qint64 kQuickSweep = 1024LL * 1024 * 1024;
/// The first `budget` bytes of `ranges`.
Ranges firstBytes(const Ranges &ranges, qint64 budget);

} // namespace services::recoveryd::fat
