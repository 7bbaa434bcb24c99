#pragma once

#include "recoveryd/content/filecontent.h"

namespace services::recoveryd::fat {

/// Consecutive clusters.
struct ClusterRun
{
    quint32 first = 0;
    quint32 count = 0;

    quint32 end() const { return first + count; }
};

using ClusterRuns = QVector<ClusterRun>; ///< In the order of the file.

/// Where the clusters of a FAT or exFAT volume are. They are numbered from 2.
struct ClusterGrid
{
    static constexpr quint32 kFirst = 2;

    qint64 heapOffset = 0;  ///< Bytes from the start of the volume to cluster 2.
    qint64 clusterSize = 0; ///< Bytes, a power of two.
    quint32 count = 0;

    quint32 end() const { return count + kFirst; }
    bool contains(quint32 cluster) const { return cluster >= kFirst && cluster < end(); }
    qint64 offsetOf(quint32 cluster) const
    {
        return heapOffset + qint64(cluster - kFirst) * clusterSize;
    }
    /// The cluster that begins at or holds the byte; 0 outside.
    quint32 clusterAt(qint64 offset) const
    {
        const qint64 index = offset < heapOffset ? -1 : (offset - heapOffset) / clusterSize;
        return index >= 0 && index < qint64(count) ? quint32(index) + kFirst : 0;
    }
    bool isClusterStart(qint64 offset) const
    {
        return clusterAt(offset) != 0 && (offset - heapOffset) % clusterSize == 0;
    }
    /// Clusters that hold `size` bytes; never more than the volume has.
    quint32 clustersFor(qint64 size) const
    {
        return quint32(qMin(qint64(count), size / clusterSize + (size % clusterSize != 0 ? 1 : 0)));
    }
};

inline bool operator==(const ClusterGrid &a, const ClusterGrid &b)
{
    return a.heapOffset == b.heapOffset && a.clusterSize == b.clusterSize && a.count == b.count;
}

/// Appends clusters, joined with the last run where they continue it.
inline void appendRun(ClusterRuns *runs, quint32 first, quint32 count)
{
    if (count == 0)
        return;
    if (!runs->isEmpty() && runs->last().end() == first)
        runs->last().count += count;
    else
        runs->append({first, count});
}

inline quint32 clusterCount(const ClusterRuns &runs)
{
    quint32 count = 0;
    for (const ClusterRun &run : runs)
        count += run.count;
    return count;
}

/// A file of `size` bytes in these clusters. Of them only the first `written` bytes were ever
/// written, the rest reads as zeros.
inline FileContent contentOf(const ClusterRuns &runs, const ClusterGrid &grid, qint64 size,
                             qint64 written)
{
    FileContent content;
    content.size = size;
    qint64 at = 0;
    for (const ClusterRun &run : runs) {
        const qint64 length = qMin(run.count * grid.clusterSize, qMin(size, written) - at);
        content.append(at, grid.offsetOf(run.first), length);
        at += run.count * grid.clusterSize;
    }
    return content;
}

} // namespace services::recoveryd::fat
