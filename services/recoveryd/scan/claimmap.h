#pragma once

#include "recoveryd/content/filecontent.h"

#include <vector>

namespace services::recoveryd {

/// Which files of a scan claim which bytes of the device. Each scanner's claims are settled among
/// themselves, since only their recency can be compared. 40 bytes a claim. One thread.
class ClaimMap
{
public:
    /// Opens the next scanner's claims.
    void begin() { m_first = m_claims.size(); }
    /// `isExisting`: the file still exists, so nothing deleted can have its blocks.
    void add(int number, const FileContent &content, quint64 recency, bool isExisting);

    struct Loss
    {
        int number = 0;
        qint64 bytes = 0;
    };
    /// Settles the claims since begin(): the greater recency keeps a byte, and each loser's bytes
    /// are counted. Of two different files with equal claims both lose. Ascending by number. Linear
    /// but for sorting.
    std::vector<Loss> settle();

    /// The bytes of all files whose number `isWanted` accepts.
    template <typename IsWanted>
    Ranges ranges(IsWanted isWanted) const
    {
        Ranges wanted;
        for (const Claim &claim : m_claims)
            if (isWanted(claim.number))
                wanted.append({claim.start, claim.length});
        return joinedRanges(wanted);
    }
    /// Where files begin: their numbers by the place of their first byte, ascending.
    std::vector<std::pair<qint64, int>> starts() const;

    void clear();

private:
    struct Claim
    {
        qint64 start = 0;
        qint64 length = 0;
        qint64 logical = 0;
        quint64 recency = 0;
        int number = 0;
        bool isExisting = false;

        qint64 end() const { return start + length; }
    };

    std::vector<Claim> m_claims;
    std::size_t m_first = 0;
};

} // namespace services::recoveryd
