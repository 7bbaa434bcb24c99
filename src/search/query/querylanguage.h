#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace search::query {

/// A word or a phrase that a file must hold, or must not.
struct Term
{
    QString text;
    bool exact = false;   ///< Was quoted: only case may differ.
    bool negated = false; ///< "-word"
};

/// A condition on the name ("*.pdf") or on the folder ("path:work").
struct Pattern
{
    QString text;
    bool negated = false;
};

/// From `least` to `most`, both inclusive.
struct Range
{
    qint64 least;
    qint64 most;

    bool contains(qint64 value) const { return value >= least && value <= most; }
    bool isUnlimited() const;
    static Range unlimited();
};

/// What a search line asks for; all of it must hold.
struct Query
{
    QVector<Term> terms;
    QVector<Pattern> names;                ///< `*` is any text, `?` one character; whole names.
    QVector<Pattern> folders;              ///< Parts of the folder's path.
    Range size = Range::unlimited();       ///< Bytes.
    Range modifiedMs = Range::unlimited(); ///< Since the epoch.

    bool isEmpty() const;
    bool hasFilters() const;
    /// One word and nothing else: the search that needs no language. `_` and `%` are wildcards in
    /// it, as LIKE has them.
    bool isPlainWord() const;
    QStringList wantedWords() const;
};

/// Reads a line: words, "phrases", -word, *.pdf, path:work, size:>1M (K, M, G and T by 1024),
/// size:1M..2G, date:2024-03, date:2024-03..2024-05 (months and years whole, in local time). “ ”
/// and ： count as " and :. Whatever is none of these is a word, so every line means something.
Query parse(const QString &line);

/// The ranges of size: and date:; false if `text` is none.
[[nodiscard]] bool parseSizes(const QString &text, Range *range);
[[nodiscard]] bool parseDates(const QString &text, Range *range);

/// True if the whole of `name` matches the pattern. Compares as it is; fold both before.
bool matchesPattern(const QString &name, const QString &pattern);

} // namespace search::query
