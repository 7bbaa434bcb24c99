#include "recoveryd/fat/filebook.h"

#include <algorithm>

namespace services::recoveryd::fat {

namespace {

constexpr std::size_t kMaxOthers = 64; // A damaged directory may claim one place many times.

struct Claim
{
    quint32 first = 0;
    quint32 end = 0;
    std::size_t index = 0;
};

/// `runs` without the clusters of `taken`, at most `count` of them.
ClusterRuns without(const ClusterRuns &runs, const std::vector<ClusterRun> &taken, quint32 count)
{
    ClusterRuns left;
    for (const ClusterRun &run : runs) {
        quint32 at = run.first;
        while (at < run.end() && count > 0) {
            quint32 end = run.end();
            quint32 next = at;
            for (const ClusterRun &hole : taken) {
                if (hole.first <= at && hole.end() > next)
                    next = hole.end() > at ? hole.end() : next;
                else if (hole.first > at)
                    end = qMin(end, hole.first);
            }
            if (next > at) {
                at = next;
                continue;
            }
            const quint32 length = qMin(count, end - at);
            appendRun(&left, at, length);
            count -= length;
            at += length;
        }
    }
    return left;
}

} // namespace

/// Lost files whose clusters were guessed and overlap: one of them was elsewhere, or has been
/// overwritten by the other.
void FileBook::settleConflicts()
{
    std::vector<Claim> claims;
    for (std::size_t i = 0; i < m_files.size(); ++i)
        if (!m_files[i].isDropped && m_files[i].life != Life::Live)
            for (const ClusterRun &run : runsOf(i))
                claims.push_back({run.first, run.end(), i});
    std::sort(claims.begin(), claims.end(), [](const Claim &a, const Claim &b) {
        return a.first != b.first ? a.first < b.first : a.index < b.index;
    });
    std::vector<std::size_t> others;
    for (std::size_t i = 0; i < claims.size(); ++i) {
        others.clear();
        for (std::size_t k = i + 1;
             k < claims.size() && claims[k].first < claims[i].end && others.size() < kMaxOthers;
             ++k) {
            // Files with one first cluster had it one after the other.
            const bool isSameStart =
                m_files[claims[k].index].first == m_files[claims[i].index].first;
            if (claims[k].index != claims[i].index && !isSameStart)
                others.push_back(claims[k].index);
        }
        if (!others.empty())
            settleConflict(claims[i].index, others);
    }
}

/// A file within whose guessed clusters others are. Where the contents fit only without those, the
/// file lay around them; else nothing is sure.
void FileBook::settleConflict(std::size_t index, const std::vector<std::size_t> &others)
{
    File &file = m_files[index];
    const auto isFixed = [](const File &which) {
        return which.isContiguous || which.isChained;
    };
    if (!isFixed(file)) {
        const ClusterGrid &grid = m_volume.grid;
        const quint32 count = grid.clustersFor(file.size);
        std::vector<ClusterRun> taken;
        quint32 more = 0;
        for (std::size_t other : others) {
            for (const ClusterRun &run : runsOf(other)) {
                taken.push_back(run);
                more += qMin(run.count, grid.count - more);
            }
        }
        bool isComplete = false;
        const ClusterRuns wide =
            m_occupied.allotted(file.first, qMin(grid.count, count + more),
                                file.allocatedMs() + kTimeStep, grid, &isComplete);
        const ClusterRuns around = without(wide, taken, count);
        const bool isWhole = clusterCount(around) == count && around.first().first == file.first;
        const bool fitsAround = isWhole && check(file, around) == Finding::Check::Passed &&
                                check(file, runsOf(index)) == Finding::Check::Failed;
        if (fitsAround) {
            setRuns(index, around, true);
            return;
        }
        file.isSure = false;
    }
    for (std::size_t other : others)
        if (!isFixed(m_files[other]))
            m_files[other].isSure = false;
}

} // namespace services::recoveryd::fat
