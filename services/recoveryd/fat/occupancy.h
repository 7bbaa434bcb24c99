#pragma once

#include "recoveryd/fat/clusterset.h"

#include <limits>
#include <map>

namespace services::recoveryd::fat {

/// Which clusters were in use, and since when. One thread.
class Occupancy
{
public:
    static constexpr qint64 kAlways = std::numeric_limits<qint64>::min();

    /// In use since `sinceMs` for sure.
    void add(const ClusterRuns &runs, qint64 sinceMs);
    /// All clusters of the set that nobody was added for, since always.
    void addRest(const ClusterSet &used, const ClusterGrid &grid);
    bool contains(quint32 cluster) const;

    /// The `count` clusters from `first` on that a file got which was written at `atMs`: those are
    /// left out that were in use then. What came into use later has overwritten the file. The first
    /// cluster is the file's in any case. `isComplete` is false if the volume ends before.
    ClusterRuns allotted(quint32 first, quint32 count, qint64 atMs, const ClusterGrid &grid,
                         bool *isComplete) const;

private:
    struct Stretch
    {
        quint32 end = 0;
        qint64 sinceMs = 0;
    };

    std::map<quint32, Stretch> m_stretches; ///< By the first cluster, without overlap.
};

} // namespace services::recoveryd::fat
