#include "recoveryd/fat/occupancy.h"

#include <limits>

namespace services::recoveryd::fat {

namespace {

constexpr int kMaxSteps = 100 * 1000; // A damaged entry must not walk through all of a volume.

} // namespace

void Occupancy::add(const ClusterRuns &runs, qint64 sinceMs)
{
    for (const ClusterRun &run : runs) {
        quint32 at = run.first;
        auto it = m_stretches.upper_bound(at);
        if (it != m_stretches.begin() && std::prev(it)->second.end > at)
            --it;
        // Who came first keeps what two claim.
        while (at < run.end()) {
            if (it != m_stretches.end() && it->first <= at) {
                at = it->second.end;
                ++it;
                continue;
            }
            const quint32 end = it == m_stretches.end() ? run.end() : qMin(run.end(), it->first);
            m_stretches.emplace_hint(it, at, Stretch{end, sinceMs});
            at = end;
        }
    }
}

void Occupancy::addRest(const ClusterSet &used, const ClusterGrid &grid)
{
    ClusterRuns rest;
    auto it = m_stretches.cbegin();
    for (quint32 cluster = ClusterGrid::kFirst; cluster < grid.end(); ++cluster) {
        while (it != m_stretches.cend() && it->second.end <= cluster)
            ++it;
        const bool isKnown = it != m_stretches.cend() && it->first <= cluster;
        if (!isKnown && used.contains(cluster))
            appendRun(&rest, cluster, 1);
    }
    add(rest, kAlways);
}

bool Occupancy::contains(quint32 cluster) const
{
    auto it = m_stretches.upper_bound(cluster);
    return it != m_stretches.begin() && std::prev(it)->second.end > cluster;
}

ClusterRuns Occupancy::allotted(quint32 first, quint32 count, qint64 atMs, const ClusterGrid &grid,
                                bool *isComplete) const
{
    ClusterRuns runs;
    appendRun(&runs, first, 1);
    quint32 left = count - 1;
    quint32 at = first + 1;
    auto it = m_stretches.upper_bound(at);
    if (it != m_stretches.begin() && std::prev(it)->second.end > at)
        --it;
    for (int step = 0; left > 0 && at < grid.end() && step < kMaxSteps; ++step) {
        while (it != m_stretches.end() && it->first <= at) {
            // Those that came later took what was the file's.
            if (it->second.sinceMs <= atMs || atMs == kAlways)
                at = qMax(at, it->second.end);
            else {
                const quint32 taken = qMin(left, it->second.end - at);
                appendRun(&runs, at, taken);
                left -= taken;
                at += taken;
            }
            if (it->second.end > at)
                break;
            ++it;
        }
        const quint32 end = it == m_stretches.end() ? grid.end() : qMin(grid.end(), it->first);
        const quint32 taken = end > at ? qMin(left, end - at) : 0;
        appendRun(&runs, at, taken);
        left -= taken;
        at += taken;
    }
    *isComplete = left == 0;
    return runs;
}

} // namespace services::recoveryd::fat
