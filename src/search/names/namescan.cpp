#include "search/names/namescan.h"

#include "search/names/namematcher.h"

#include <thread>

namespace search::names {
namespace {

constexpr int mostUnsure = 4000;       // per thread; each costs a look into the database
constexpr int rowsBetweenLooks = 4096; // at the flag that cancels
constexpr int rowsForTwoThreads = 20000;

/// The rows of one span of an arena that hold the matcher's rarest word, one after the other.
class Candidates
{
public:
    Candidates(const NameMatcher &matcher, int first, int end)
        : m_arena(matcher.arena())
        , m_needle(matcher.rarest())
        , m_row(first)
        , m_nameHit(first - 1)
        , m_end(end)
        , m_textEnd(end > first ? m_arena.name(end - 1).end : nullptr)
    {}

    /// The next row, or the end of the span. Stops at `pause` to let the caller look around; the
    /// row it returns then is no candidate.
    int next(int pause)
    {
        while (m_row < m_end) {
            const int row = m_row++;
            if (!m_needle)
                return row;
            if (m_nameHit < row)
                m_nameHit = findFrom(row);
            if (m_nameHit == row)
                return row;
            if (!m_needle->isInAnyFolder)
                m_row = m_nameHit;
            else if (m_needle->pieceIsInFolderOf(m_arena, row))
                return row;
            if (m_row >= pause && m_row < m_end)
                return m_row - 1;
        }
        return m_end;
    }

private:
    int findFrom(int row) const
    {
        const char *hit = m_needle->finder.find(m_arena.name(row).begin, m_textEnd);
        return hit == m_textEnd ? m_end : m_arena.rowAt(hit, row);
    }

    const NameArena &m_arena;
    const Needle *m_needle;
    int m_row;
    int m_nameHit; // the first row from m_row on whose name holds the word, as far as known
    int m_end;
    const char *m_textEnd;
};

void scanWords(const NameMatcher &matcher, int first, int end, int limit,
               const Cancelled &cancelled, NameHits *hits)
{
    Candidates candidates(matcher, first, end);
    int pause = first + rowsBetweenLooks;
    for (int row = candidates.next(pause); row < end; row = candidates.next(pause)) {
        if (row >= pause) {
            if (cancelled())
                return;
            pause = row + rowsBetweenLooks;
        }
        const Match match = matcher.test(row, false);
        if (match == Match::Direct) {
            hits->direct.append(row);
        } else if (match == Match::Unsure && hits->unsure.size() == mostUnsure) {
            hits->isComplete = false;
            return;
        } else if (match == Match::Unsure) {
            hits->unsure.append(row);
        }
        if (hits->direct.size() >= limit)
            return;
    }
}

void scanPinyin(const NameMatcher &matcher, int first, int end, int limit,
                const Cancelled &cancelled, NameHits *hits)
{
    for (int row = first; row < end && hits->pinyin.size() < limit; ++row) {
        if (row % rowsBetweenLooks == 0 && cancelled())
            return;
        if (matcher.arena().hasHan(row) && matcher.test(row, true) == Match::Pinyin)
            hits->pinyin.append(row);
    }
}

using Scan = void (*)(const NameMatcher &, int, int, int, const Cancelled &, NameHits *);

NameHits scanBoth(Scan scan, const NameMatcher &matcher, int limit, const Cancelled &cancelled)
{
    const int rows = matcher.arena().rowCount();
    NameHits hits;
    if (rows < rowsForTwoThreads || std::thread::hardware_concurrency() < 2) {
        scan(matcher, 0, rows, limit, cancelled, &hits);
        return hits;
    }
    NameHits older;
    std::thread helper([&] { scan(matcher, rows / 2, rows, limit, cancelled, &older); });
    scan(matcher, 0, rows / 2, limit, cancelled, &hits);
    helper.join();
    // Nothing of the older half can stand before what the newer one left out, or is needed where
    // that one has enough.
    if (!hits.isComplete || hits.direct.size() >= limit)
        return hits;
    hits.direct += older.direct;
    hits.unsure += older.unsure;
    hits.pinyin += older.pinyin;
    hits.isComplete = older.isComplete;
    return hits;
}

} // namespace

NameHits scanNames(const NameMatcher &matcher, int limit, const Cancelled &cancelled)
{
    NameHits hits = scanBoth(scanWords, matcher, limit, cancelled);
    if (matcher.hasPinyin() && hits.direct.size() + hits.unsure.size() < limit && !cancelled())
        hits.pinyin = scanBoth(scanPinyin, matcher, limit, cancelled).pinyin;
    return hits;
}

} // namespace search::names
