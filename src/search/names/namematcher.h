#pragma once

#include "search/names/bytefinder.h"
#include "search/names/namearena.h"
#include "search/query/querylanguage.h"

#include <QByteArray>
#include <QStringList>
#include <QVector>

#include <vector>

namespace search::names {

/// How a row answers a query.
enum class Match {
    None,
    Direct, ///< As LIKE finds it.
    Unsure, ///< Folded texts match; only the database knows whether it is a direct hit.
    Pinyin, ///< A word is the pinyin of Han characters in the name.
};

/// One word with what the folders say about it.
struct Needle
{
    Needle(const QString &text, bool wildcards, const NameArena &arena);

    /// The word is in the path or the name of the row. Where folding may have changed how many
    /// characters there are, wildcards are not tested.
    bool isIn(const NameArena &arena, int row) const;
    bool isInWithWildcards(const NameArena &arena, int row) const;
    /// Its longest part without wildcards is; what isIn() holds for is among these.
    bool pieceIsIn(const NameArena &arena, int row) const;
    bool pieceIsInFolderOf(const NameArena &arena, int row) const;

    QByteArray folded;
    QByteArray piece;    ///< Longest part without wildcards.
    QByteArray nameHead; ///< Of a piece with slashes: what the name begins with.
    bool isWild;         ///< Holds `_` or `%` that count as wildcards.
    bool isPlain;        ///< Folding changed nothing but the case of ASCII letters.
    bool isPinyin = false;
    bool isInAnyFolder = false;
    ByteFinder finder;
    std::vector<quint8> folderHits; ///< 1: holds the piece, 2: ends with the part before nameHead.
};

/// Tests rows of an arena against a query and refine words. Reads only: one serves all threads.
class NameMatcher
{
public:
    NameMatcher(const NameArena &arena, const query::Query &query, const QStringList &refineWords);

    /// `withPinyin` tests what the words do not match by themselves as pinyin as well.
    Match test(int row, bool withPinyin) const;
    /// For a row that the database does not find: the folded texts hold the words all the same.
    bool isFoldedMatch(int row) const;
    /// The word that the fewest rows are likely to hold; null for a query of filters only.
    const Needle *rarest() const { return m_needles.isEmpty() ? nullptr : &m_needles[m_rarest]; }
    bool hasPinyin() const { return m_hasPinyin; }
    const NameArena &arena() const { return m_arena; }

private:
    struct Glob
    {
        QString pattern;
        QByteArray tail; ///< Behind the last `*`, where no `?` stands in it.
        bool negated;
    };
    struct FolderTest
    {
        std::vector<quint8> holds; ///< By folder.
        bool negated;
    };

    void addNeedles(const query::Query &query, const QStringList &refineWords);
    void addFilters(const query::Query &query);
    bool passesFilters(int row) const;
    bool passesGlob(const Glob &glob, int row) const;

    const NameArena &m_arena;
    QVector<Needle> m_needles;
    QVector<Needle> m_unwanted;
    QVector<Glob> m_globs;
    QVector<FolderTest> m_folders;
    query::Range m_size;
    query::Range m_modifiedMs;
    int m_rarest = 0;
    bool m_hasPinyin = false;
    bool m_allPlain = true;
};

} // namespace search::names
