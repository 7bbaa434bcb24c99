#include "search/query/contentsearch.h"

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

/// One search while its stages add to it.
class LineSearch
{
public:
    LineSearch(const QSqlDatabase &database, const Query &query, int limit,
               const QString &refineString)
        : m_database(database)
        , m_query(query)
        , m_limit(limit)
        , m_refineWords(splitKeywords(refineString))
    {}

    bool isFull() const { return m_hits.size() >= m_limit; }
    /// Takes what another query has found.
    void start(const QVariantList &results);
    /// Hits of the full text index by rank. A failure only leaves more to the next stage.
    void runFullTextStage();
    bool runSubstringStage(QString *error);
    bool runSpellingStage(QString *error);
    QVariantList results();

private:
    struct Hit
    {
        QVariantMap row;
        int span; ///< Characters in which all words stand; see wordSpan().
    };

    void addCommonConditions(RowFilter *filter) const;
    bool walk(const RowFilter &filter, bool respelled, QString *error);
    void addHit(const QSqlQuery &row, const QString &content, bool respelled);

    QSqlDatabase m_database;
    Query m_query;
    int m_limit;
    QStringList m_refineWords;
    QVector<Hit> m_hits;
    QSet<QString> m_paths;
    int m_firstRespelled = -1;
};

void LineSearch::start(const QVariantList &results)
{
    for (const QVariant &result : results) {
        const QVariantMap row = result.toMap();
        m_paths.insert(row.value(QStringLiteral("path")).toString());
        m_hits.append({row, 0});
    }
}

void LineSearch::addCommonConditions(RowFilter *filter) const
{
    addFilters(filter, m_query);
    addWords(filter, m_refineWords,
             QStringList{QStringLiteral("file_name"), QStringLiteral("path")} + contentColumn());
}

void LineSearch::runFullTextStage()
{
    RowFilter filter;
    filter.condition = QStringLiteral("content_fts MATCH ?");
    filter.patterns = QStringList{ftsExpression(m_query)};
    if (filter.patterns.first().isEmpty())
        return;
    addTerms(&filter, m_query, contentColumn(), true);
    addCommonConditions(&filter);
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    bool ok = query.prepare(
        QStringLiteral("SELECT %1,content FROM (SELECT file_index.id AS hit,"
                       "bm25(content_fts) AS score FROM content_fts JOIN file_index "
                       "ON file_index.id = content_fts.rowid WHERE %2 ORDER BY score,hit LIMIT ?) "
                       "CROSS JOIN file_index ON id = hit ORDER BY score,hit")
            .arg(fileColumns(), filter.condition));
    for (const QString &pattern : qAsConst(filter.patterns))
        query.addBindValue(pattern);
    query.addBindValue(m_limit);
    ok = ok && query.exec();
    while (ok && query.next())
        addHit(query, query.value(5).toString(), false);
    if (query.lastError().isValid())
        qDebug() << "[searchContents] FTS failed:" << query.lastError().text();
}

bool LineSearch::runSubstringStage(QString *error)
{
    RowFilter filter;
    filter.condition = QStringLiteral("length(file_index.content) > 0");
    addTerms(&filter, m_query, contentColumn());
    addCommonConditions(&filter);
    return walk(filter, false, error);
}

bool LineSearch::runSpellingStage(QString *error)
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
    m_firstRespelled = m_hits.size();
    return walk(filter, true, error);
}

bool LineSearch::walk(const RowFilter &filter, bool respelled, QString *error)
{
    WalkPolicy policy;
    policy.walkCost = 3; // reading the texts is the larger part of either way
    NewestFirstQuery query(m_database, fileColumns() + QLatin1String(",content"), filter, policy);
    // Rows that an earlier stage delivered come again and are skipped.
    return query.run(
        m_limit,
        [&](const QSqlQuery &row) {
            if (!m_paths.contains(row.value(0).toString()))
                addHit(row, row.value(5).toString(), respelled);
            return !isFull();
        },
        error);
}

void LineSearch::addHit(const QSqlQuery &row, const QString &content, bool respelled)
{
    QStringList words;
    const QStringList wanted = m_query.wantedWords();
    for (const QString &word : wanted) {
        const QString written = respelled ? spellingIn(content, word) : word;
        words.append(written.isEmpty() ? word : written);
    }
    QVariantMap result = resultOfRow(row);
    QString snippet = makeSnippetAroundAny(content, words);
    if (words.isEmpty()) // filters only: how the text begins
        snippet = simplifySnippetLine(content.left(120)).toHtmlEscaped();
    result.insert(QStringLiteral("snippet"), snippet);
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
                            const QString &refine, QString *error)
{
    const Query query = parse(line);
    if (query.isEmpty() || limit < 1)
        return QVariantList();
    LineSearch search(database, query, limit, refine);
    bool ok = true;
    if (query.isPlainWord()) {
        QString text;
        search.start(queryByContent(database, query.terms.first().text, limit, refine, &text));
        ok = text.isEmpty();
        if (error)
            *error = text;
    } else {
        search.runFullTextStage();
        ok = search.isFull() || search.runSubstringStage(error);
    }
    if (ok && !search.isFull())
        (void)search.runSpellingStage(error);
    return search.results();
}

} // namespace search::query
