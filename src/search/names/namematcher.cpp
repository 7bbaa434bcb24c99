#include "search/names/namematcher.h"

#include "search/query/folding.h"
#include "search/query/pinyin.h"

#include <algorithm>
#include <cstring>

namespace search::names {
namespace {

constexpr quint8 holdsPiece = 1;
constexpr quint8 endsBefore = 2;

QByteArray longestPiece(const QByteArray &text, bool wildcards)
{
    if (!wildcards)
        return text;
    QByteArray longest;
    int start = 0;
    for (int i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text.at(i) != '_' && text.at(i) != '%')
            continue;
        if (i - start > longest.size())
            longest = text.mid(start, i - start);
        start = i + 1;
    }
    return longest;
}

/// The byte behind the character at `at`.
const char *nextCharacter(const char *at, const char *end)
{
    do
        ++at;
    while (at < end && (static_cast<unsigned char>(*at) & 0xC0) == 0x80);
    return at;
}

/// LIKE "%pattern%" over UTF-8: `_` is one character, `%` any text.
bool holdsLike(const QByteArray &text, const QByteArray &pattern)
{
    const QByteArray whole = '%' + pattern + '%';
    const char *t = text.constData();
    const char *end = t + text.size();
    const char *p = whole.constData();
    const char *percent = nullptr;
    const char *taken = nullptr;
    while (t < end) {
        if (*p == '%') {
            percent = ++p;
            taken = t;
        } else if (*p == '_') {
            t = nextCharacter(t, end);
            ++p;
        } else if (*p && *p == *t) {
            ++t;
            ++p;
        } else if (percent) {
            t = taken = nextCharacter(taken, end);
            p = percent;
        } else {
            return false;
        }
        if (percent && *percent == '\0')
            return true;
    }
    while (*p == '%')
        ++p;
    return *p == '\0';
}

bool endsWith(const Span &text, const QByteArray &tail)
{
    return text.size() >= tail.size() &&
           std::memcmp(text.end - tail.size(), tail.constData(), size_t(tail.size())) == 0;
}

bool startsWith(const Span &text, const QByteArray &head)
{
    return text.size() >= head.size() &&
           std::memcmp(text.begin, head.constData(), size_t(head.size())) == 0;
}

} // namespace

Needle::Needle(const QString &text, bool wildcards, const NameArena &arena)
    : folded(query::folded(text).toUtf8())
    , piece(longestPiece(folded, wildcards))
    , isWild(piece.size() != folded.size())
    , isPlain(query::folded(text) == query::asciiLower(text))
    , finder(piece, arena.byteCounts())
    , folderHits(size_t(arena.folderCount()))
{
    const int slash = piece.lastIndexOf('/');
    const QByteArray before = piece.left(qMax(slash, 0));
    nameHead = slash < 0 ? QByteArray() : piece.mid(slash + 1);
    for (int i = 0; i < arena.folderCount(); ++i) {
        const Span folder = arena.folder(i);
        quint8 hits = 0;
        if (finder.isIn(folder.begin, folder.end))
            hits |= holdsPiece;
        if (slash >= 0 && endsWith(folder, before))
            hits |= endsBefore;
        folderHits[size_t(i)] = hits;
        isInAnyFolder = isInAnyFolder || hits != 0;
    }
}

bool Needle::pieceIsInFolderOf(const NameArena &arena, int row) const
{
    const quint8 hits = folderHits[size_t(arena.folderOf(row))];
    return hits & holdsPiece || (hits & endsBefore && startsWith(arena.name(row), nameHead));
}

bool Needle::pieceIsIn(const NameArena &arena, int row) const
{
    const Span name = arena.name(row);
    return pieceIsInFolderOf(arena, row) || finder.isIn(name.begin, name.end);
}

bool Needle::isIn(const NameArena &arena, int row) const
{
    return pieceIsIn(arena, row) &&
           (!isWild || !arena.isPlain(row) || isInWithWildcards(arena, row));
}

bool Needle::isInWithWildcards(const NameArena &arena, int row) const
{
    return !isWild || holdsLike(arena.path(row), folded) ||
           holdsLike(arena.name(row).bytes(), folded);
}

NameMatcher::NameMatcher(const NameArena &arena, const query::Query &query,
                         const QStringList &refineWords)
    : m_arena(arena)
    , m_size(query.size)
    , m_modifiedMs(query.modifiedMs)
{
    addNeedles(query, refineWords);
    addFilters(query);
}

void NameMatcher::addNeedles(const query::Query &query, const QStringList &refineWords)
{
    const bool wildcards = query.isPlainWord();
    for (const query::Term &term : query.terms) {
        Needle needle(term.text, wildcards, m_arena);
        needle.isPinyin = !term.exact && query::mayBePinyin(needle.folded);
        if (term.negated) {
            m_unwanted.append(needle);
            continue;
        }
        m_hasPinyin = m_hasPinyin || needle.isPinyin;
        m_needles.append(needle);
    }
    for (const QString &word : refineWords)
        m_needles.append(Needle(word, true, m_arena));
    for (int i = 0; i < m_needles.size(); ++i) {
        m_allPlain = m_allPlain && m_needles.at(i).isPlain;
        if (m_needles.at(i).piece.size() > m_needles.at(m_rarest).piece.size())
            m_rarest = i;
    }
}

void NameMatcher::addFilters(const query::Query &query)
{
    for (const query::Pattern &pattern : query.names) {
        const QString text = query::folded(pattern.text);
        const QString tail = text.mid(text.lastIndexOf(QLatin1Char('*')) + 1);
        m_globs.append({text, tail.contains(QLatin1Char('?')) ? QByteArray() : tail.toUtf8(),
                        pattern.negated});
    }
    for (const query::Pattern &pattern : query.folders) {
        const ByteFinder finder(query::folded(pattern.text).toUtf8(), m_arena.byteCounts());
        FolderTest test{std::vector<quint8>(size_t(m_arena.folderCount())), pattern.negated};
        for (int i = 0; i < m_arena.folderCount(); ++i) {
            const QByteArray folder = m_arena.folder(i).bytes() + '/';
            test.holds[size_t(i)] = finder.isIn(folder.cbegin(), folder.cend());
        }
        m_folders.append(test);
    }
}

bool NameMatcher::passesGlob(const Glob &glob, int row) const
{
    const QByteArray name(m_arena.name(row).begin);
    return name.endsWith(glob.tail) && query::matchesPattern(QString::fromUtf8(name), glob.pattern);
}

bool NameMatcher::passesFilters(int row) const
{
    if (!m_size.contains(m_arena.size(row)) || !m_modifiedMs.contains(m_arena.modifiedMs(row)))
        return false;
    for (const FolderTest &test : m_folders) {
        if (bool(test.holds[size_t(m_arena.folderOf(row))]) == test.negated)
            return false;
    }
    for (const Glob &glob : m_globs) {
        if (passesGlob(glob, row) == glob.negated)
            return false;
    }
    for (const Needle &needle : m_unwanted) {
        if (needle.isIn(m_arena, row))
            return false;
    }
    return true;
}

Match NameMatcher::test(int row, bool withPinyin) const
{
    bool byPinyin = false;
    const Span name = m_arena.name(row);
    for (const Needle &needle : m_needles) {
        if (needle.isIn(m_arena, row))
            continue;
        if (!withPinyin || !needle.isPinyin || !m_arena.hasHan(row) ||
            !query::readsAs(name.begin, name.size(), needle.folded))
            return Match::None;
        byPinyin = true;
    }
    if (!passesFilters(row))
        return Match::None;
    if (byPinyin)
        return Match::Pinyin;
    return m_allPlain && m_arena.isPlain(row) ? Match::Direct : Match::Unsure;
}

bool NameMatcher::isFoldedMatch(int row) const
{
    return std::all_of(m_needles.cbegin(), m_needles.cend(), [this, row](const Needle &needle) {
        return needle.isInWithWildcards(m_arena, row);
    });
}

} // namespace search::names
