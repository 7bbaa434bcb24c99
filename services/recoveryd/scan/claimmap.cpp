#include "recoveryd/scan/claimmap.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace services::recoveryd {

namespace {

/// Ranges that are taken so far, joined where they touch.
class Taken
{
public:
    /// How many bytes of the range are taken.
    qint64 overlap(qint64 start, qint64 end) const
    {
        qint64 bytes = 0;
        for (auto it = firstBehind(start); it != m_ranges.end() && it->first < end; ++it)
            bytes += qMin(end, it->second) - qMax(start, it->first);
        return bytes;
    }

    void insert(qint64 start, qint64 end)
    {
        auto it = m_ranges.upper_bound(start);
        if (it != m_ranges.begin() && std::prev(it)->second >= start)
            --it;
        while (it != m_ranges.end() && it->first <= end) {
            start = qMin(start, it->first);
            end = qMax(end, it->second);
            it = m_ranges.erase(it);
        }
        m_ranges.emplace(start, end);
    }

private:
    std::map<qint64, qint64>::const_iterator firstBehind(qint64 start) const
    {
        auto it = m_ranges.upper_bound(start);
        if (it != m_ranges.begin() && std::prev(it)->second > start)
            --it;
        return it;
    }

    std::map<qint64, qint64> m_ranges;
};

} // namespace

void ClaimMap::add(int number, const FileContent &content, quint64 recency, bool isExisting)
{
    for (const Extent &extent : content.extents)
        m_claims.push_back(
            {extent.physical, extent.length, extent.logical, recency, number, isExisting});
    for (const PackedExtent &extent : content.packed)
        for (const Range &range : extent.stored)
            m_claims.push_back(
                {range.start, range.length, extent.logical, recency, number, isExisting});
}

std::vector<ClaimMap::Loss> ClaimMap::settle()
{
    const auto rank = [](const Claim &claim) {
        return std::make_pair(claim.isExisting, claim.recency);
    };
    const auto first = m_claims.begin() + std::ptrdiff_t(m_first);
    std::sort(first, m_claims.end(), [&rank](const Claim &a, const Claim &b) {
        return rank(a) != rank(b) ? rank(a) > rank(b) : a.start < b.start;
    });

    std::unordered_map<int, qint64> lost;
    const auto lose = [&lost](const Claim &claim, qint64 bytes) {
        if (bytes > 0)
            lost[claim.number] += bytes;
    };
    Taken taken;
    for (auto group = first; group != m_claims.end();) {
        const auto end = std::find_if(
            group, m_claims.end(), [&](const Claim &claim) { return rank(claim) != rank(*group); });
        const Claim *widest = nullptr; // of the group, the one that reaches farthest so far
        for (auto it = group; it != end; ++it) {
            lose(*it, taken.overlap(it->start, it->end()));
            // The same bytes at the same place of the file: another name, or a shared extent.
            const bool isSame = widest && widest->number != it->number &&
                                it->start - it->logical != widest->start - widest->logical;
            if (isSame && it->start < widest->end()) {
                const qint64 shared = qMin(it->end(), widest->end()) - it->start;
                lose(*it, shared);
                lose(*widest, shared);
            }
            if (!widest || it->end() > widest->end())
                widest = &*it;
        }
        for (auto it = group; it != end; ++it)
            taken.insert(it->start, it->end());
        group = end;
    }

    std::vector<Loss> losses;
    losses.reserve(lost.size());
    for (const auto &entry : lost)
        losses.push_back({entry.first, entry.second});
    std::sort(losses.begin(), losses.end(),
              [](const Loss &a, const Loss &b) { return a.number < b.number; });
    m_first = m_claims.size();
    return losses;
}

std::vector<std::pair<qint64, int>> ClaimMap::starts() const
{
    std::vector<std::pair<qint64, int>> found;
    for (const Claim &claim : m_claims)
        if (claim.logical == 0)
            found.emplace_back(claim.start, claim.number);
    std::sort(found.begin(), found.end());
    return found;
}

void ClaimMap::clear()
{
    std::vector<Claim>().swap(m_claims);
    m_first = 0;
}

} // namespace services::recoveryd
