#include "search/query/contentsearch.h"

#include "search/grams/candidatequery.h"
#include "search/grams/gramindex.h"
#include "search/grams/textgrams.h"
#include "search/query/proximity.h"
#include "search/query/rowconditions.h"
#include "search/query/spellings.h"
#include "search/searchkeywords.h"
#include "search/searchquery.h"
#include "search/searchsnippet.h"

#include <QDebug>
#include <QSet>
#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>

namespace search::query {
namespace {

/// A rank costs a look at the whole text. Of more matches only the latest in the index get one.
constexpr int mostRanked = 250;

QStringList contentColumn()
{
    return {QStringLiteral("file_index.content")};
}

/// The words of all terms as one expression, so that each must begin a token. Phrases of several
/// tokens are not known to the table; their order is tested on the text.
QString ftsExpression(const Query &query)
{
    QStringList parts;
    const QStringList words = query.wantedWords();
    for (QString word : words) {
        for (QChar &c : word) {
            if (!c.isLetterOrNumber() && !c.isMark() && !c.isSurrogate())
                c = QLatin1Char(' ');
        }
        for (const QString &token : word.simplified().split(QLatin1Char(' '))) {
            if (!token.isEmpty())
                parts.append(buildFtsMatchExpr(token));
        }
    }
    return parts.join(QLatin1String(" AND "));
}

/// `query` with all terms exact that hold more than the tokens of the word index do.
Query asTokens(Query query)
{
    for (Term &term : query.terms) {
        term.exact = term.exact || std::any_of(term.text.cbegin(), term.text.cend(), [](QChar c) {
                         return !c.isLetterOrNumber() && !c.isMark() && !c.isSurrogate();
                     });
    }
    return query;
}

/// One search while its stages add to it.
class LineSearch
{
public:
    LineSearch(const QSqlDatabase &database, const Query &query, int limit,
               const QString &refineString, const std::function<bool()> &cancelled)
        : m_database(database)
        , m_query(query)
        , m_limit(limit)
        , m_refineWords(splitKeywords(refineString))
        , m_cancelled(cancelled)
        , m_hasGrams(grams::canSearchGrams(database))
        , m_gramExpression(grams::gramExpression(query.wantedWords()))
    {}

    bool isDone() const { return m_hits.size() >= m_limit || m_cancelled(); }
    /// Hits of the full text index by rank. A failure only leaves more to the next stage.
    void runRankedStage();
    bool runSubstringStage(QString *error);
    bool runSpellingStage(QString *error);
    QVariantList results();

private:
    enum class Stage { Ranked, Substring, Respelled };
    struct Hit
    {
        QVariantMap row;
        int span; ///< Characters in which all words stand; see wordSpan().
    };

    QString rankedCondition(const QString &expression) const;
    QString snippetOf(const QString &content, const QStringList &words, Stage stage) const;
    void addCommonConditions(RowFilter *filter) const;
    bool walk(const RowFilter &filter, Stage stage, const NewestFirstQuery::RowHandler &handler,
              QString *error);
    bool globSpellings(QString *error);
    bool holdsRespelled(const QString &content) const;
    void addHit(const QSqlQuery &row, const QString &content, Stage stage);

    QSqlDatabase m_database;
    Query m_query;
    int m_limit;
    QStringList m_refineWords;
    std::function<bool()> m_cancelled;
    bool m_hasGrams;
    QString m_gramExpression;
    QVector<Hit> m_hits;
    QSet<QString> m_paths;
    int m_firstRespelled = -1;
};

void LineSearch::addCommonConditions(RowFilter *filter) const
{
    addFilters(filter, m_query);
    addWords(filter, m_refineWords,
             QStringList{QStringLiteral("file_name"), QStringLiteral("path")} + contentColumn());
}

/// Leaves out what is too old in the index to be ranked.
QString LineSearch::rankedCondition(const QString &expression) const
{
    QSqlQuery query(m_database);
    const bool ok =
        query.prepare(QStringLiteral("SELECT rowid FROM content_fts WHERE content_fts MATCH ? "
                                     "ORDER BY rowid DESC LIMIT 1 OFFSET %1")
                          .arg(qMax(m_limit, mostRanked)));
    query.addBindValue(expression);
    const QString match = QStringLiteral("content_fts MATCH ?");
    return ok && query.exec() && query.next()
               ? match + QLatin1String(" AND content_fts.rowid > ") + query.value(0).toString()
               : match;
}

void LineSearch::runRankedStage()
{
    const bool plain = m_query.isPlainWord();
    const QString expression =
        plain ? buildFtsMatchExpr(m_query.terms.first().text) : ftsExpression(m_query);
    if (expression.isEmpty())
        return;
    RowFilter filter;
    filter.condition = rankedCondition(expression);
    filter.patterns = QStringList{expression};
    if (!plain)
        addTerms(&filter, asTokens(m_query), contentColumn(), true);
    addCommonConditions(&filter);
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    bool ok = query.prepare(
        QStringLiteral("SELECT %1,content,score FROM (SELECT file_index.id AS hit,"
                       "bm25(content_fts) AS score FROM content_fts JOIN file_index "
                       "ON file_index.id = content_fts.rowid WHERE %2 ORDER BY score,hit LIMIT ?) "
                       "CROSS JOIN file_index ON id = hit ORDER BY score,hit")
            .arg(fileColumns(), filter.condition));
    for (const QString &pattern : qAsConst(filter.patterns))
        query.addBindValue(pattern);
    query.addBindValue(m_limit);
    ok = ok && query.exec();
    while (ok && !isDone() && query.next()) {
        addHit(query, query.value(5).toString(), Stage::Ranked);
        // Shown without refine keywords only.
        if (plain && m_refineWords.isEmpty())
            m_hits.last().row.insert(QStringLiteral("score"), query.value(6).toDouble());
    }
    if (query.lastError().isValid())
        qDebug() << "[searchContents] FTS failed:" << query.lastError().text();
}

bool LineSearch::runSubstringStage(QString *error)
{
    RowFilter filter;
    addTerms(&filter, m_query, contentColumn());
    addCommonConditions(&filter);
    if (!m_hasGrams && filter.condition.isEmpty())
        filter.condition = QStringLiteral("1");
    if (!m_hasGrams)
        filter.condition += QStringLiteral(" AND file_index.content <> ''");
    return walk(
        filter, Stage::Substring, [](const QSqlQuery &) { return true; }, error);
}

/// Hands on the rows that `handler` takes and that no earlier stage has delivered.
bool LineSearch::walk(const RowFilter &filter, Stage stage,
                      const NewestFirstQuery::RowHandler &handler, QString *error)
{
    const QString columns = fileColumns() + QLatin1String(",content");
    const auto take = [&](const QSqlQuery &row) {
        if (!m_paths.contains(row.value(0).toString()) && handler(row))
            addHit(row, row.value(5).toString(), stage);
        return !isDone();
    };
    if (m_hasGrams)
        return grams::newestCandidates(m_database, columns, m_gramExpression, filter, take, error);
    WalkPolicy policy;
    policy.walkCost = 3; // reading the texts is the larger part of either way
    NewestFirstQuery query(m_database, columns, filter, policy);
    // Rows that come again take a place each.
    return query.run(m_limit + m_paths.size(), take, error);
}

bool LineSearch::runSpellingStage(QString *error)
{
    m_firstRespelled = m_hits.size();
    if (!m_hasGrams)
        return globSpellings(error);
    if (m_gramExpression.isEmpty())
        return true;
    RowFilter filter;
    Query unwanted = m_query;
    unwanted.terms.erase(std::remove_if(unwanted.terms.begin(), unwanted.terms.end(),
                                        [](const Term &term) { return !term.negated; }),
                         unwanted.terms.end());
    addTerms(&filter, unwanted, contentColumn());
    addCommonConditions(&filter);
    return walk(
        filter, Stage::Respelled,
        [this](const QSqlQuery &row) { return holdsRespelled(row.value(5).toString()); }, error);
}

bool LineSearch::holdsRespelled(const QString &content) const
{
    const QString folded = grams::comparable(content);
    for (const Term &term : m_query.terms) {
        if (term.negated)
            continue;
        const bool holds = term.exact ? grams::withoutBorderBlanks(content).contains(
                                            grams::withoutBorderBlanks(term.text))
                                      : folded.contains(grams::comparable(term.text));
        if (!holds)
            return false;
    }
    return true;
}

/// Without the gram index: what GLOB finds among all texts.
bool LineSearch::globSpellings(QString *error)
{
    const QString column = contentColumn().constFirst();
    RowFilter filter;
    bool differs = false;
    for (const Term &term : qAsConst(m_query.terms)) {
        if (term.exact || term.negated)
            continue;
        differs = differs || hasOtherSpellings(term.text);
        filter.condition += (filter.condition.isEmpty() ? QString() : QStringLiteral(" AND ")) +
                            column + QLatin1String(" GLOB ?");
        filter.patterns.append(spellingGlob(term.text));
    }
    if (!differs)
        return true;
    Query others = m_query;
    others.terms.clear();
    for (const Term &term : qAsConst(m_query.terms)) {
        if (term.exact || term.negated)
            others.terms.append(term);
    }
    addTerms(&filter, others, contentColumn());
    addCommonConditions(&filter);
    return walk(
        filter, Stage::Respelled, [](const QSqlQuery &) { return true; }, error);
}

QString LineSearch::snippetOf(const QString &content, const QStringList &words, Stage stage) const
{
    if (words.isEmpty()) // filters only: how the text begins
        return simplifySnippetLine(content.left(120)).toHtmlEscaped();
    if (!m_query.isPlainWord() || stage == Stage::Respelled)
        return makeSnippetAroundAny(content, words);
    const QString snippet =
        stage == Stage::Substring ? makeSubstringSnippet(content, words.first()) : QString();
    return snippet.isEmpty() ? makePrimarySnippet(content, words.first()) : snippet;
}

void LineSearch::addHit(const QSqlQuery &row, const QString &content, Stage stage)
{
    QStringList words;
    const QStringList wanted = m_query.wantedWords();
    for (const QString &word : wanted) {
        const QString written = stage == Stage::Respelled ? spellingIn(content, word) : word;
        words.append(written.isEmpty() ? word : written);
    }
    QVariantMap result = resultOfRow(row);
    result.insert(QStringLiteral("snippet"), snippetOf(content, words, stage));
    if (!m_refineWords.isEmpty())
        result.insert(QStringLiteral("refineSnippet"),
                      makeSnippetAroundAny(content, m_refineWords));
    m_paths.insert(result.value(QStringLiteral("path")).toString());
    m_hits.append({result, wordSpan(content, words)});
}

QVariantList LineSearch::results()
{
    const auto respelled = m_firstRespelled < 0 ? m_hits.end() : m_hits.begin() + m_firstRespelled;
    const auto isNearer = [](const Hit &a, const Hit &b) {
        return a.span < b.span;
    };
    std::stable_sort(m_hits.begin(), respelled, isNearer);
    std::stable_sort(respelled, m_hits.end(), isNearer);
    QVariantList results;
    for (const Hit &hit : qAsConst(m_hits))
        results.append(hit.row);
    return results;
}

} // namespace

QVariantList searchContents(const QSqlDatabase &database, const QString &line, int limit,
                            const QString &refine, const std::function<bool()> &cancelled,
                            QString *error)
{
    const Query query = parse(line);
    if (query.isEmpty() || limit < 1)
        return QVariantList();
    LineSearch search(database, query, limit, refine, cancelled);
    search.runRankedStage();
    const bool ok = search.isDone() || search.runSubstringStage(error);
    if (ok && !search.isDone())
        (void)search.runSpellingStage(error);
    return search.results();
}

} // namespace search::query
