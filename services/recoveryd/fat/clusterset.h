#pragma once

#include "recoveryd/fat/clustergrid.h"

#include <vector>

namespace services::recoveryd::fat {

/// A set of cluster numbers, one bit each.
class ClusterSet
{
public:
    ClusterSet() = default;
    explicit ClusterSet(const ClusterGrid &grid)
        : m_end(grid.end())
        , m_words(std::size_t(m_end) / 64 + 1)
    {}

    bool contains(quint32 cluster) const
    {
        return cluster < m_end && (m_words[cluster / 64] >> (cluster % 64) & 1) != 0;
    }
    void insert(quint32 cluster)
    {
        if (cluster < m_end)
            m_words[cluster / 64] |= quint64(1) << (cluster % 64);
    }
    void insert(const ClusterRuns &runs)
    {
        for (const ClusterRun &run : runs)
            for (quint32 i = 0; i < run.count; ++i)
                insert(run.first + i);
    }
    bool intersects(const ClusterRuns &runs) const
    {
        for (const ClusterRun &run : runs)
            for (quint32 i = 0; i < run.count; ++i)
                if (contains(run.first + i))
                    return true;
        return false;
    }

    /// The bytes of the clusters that are not in the set.
    Ranges complement(const ClusterGrid &grid) const
    {
        Ranges ranges;
        for (quint32 cluster = ClusterGrid::kFirst; cluster < grid.end(); ++cluster) {
            if (contains(cluster))
                continue;
            const qint64 start = grid.offsetOf(cluster);
            if (!ranges.isEmpty() && ranges.last().end() == start)
                ranges.last().length += grid.clusterSize;
            else
                ranges.append({start, grid.clusterSize});
        }
        return ranges;
    }

private:
    quint32 m_end = 0;
    std::vector<quint64> m_words;
};

} // namespace services::recoveryd::fat
