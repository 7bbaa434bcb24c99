#include "search/searchquery.h"

#include "search/newestfirstquery.h"
#include "search/query/rowconditions.h"
#include "search/searchkeywords.h"
#include "search/searchsnippet.h"

#include <QDebug>
#include <QSet>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QVariantMap>

namespace search {
namespace {

using query::addWords;

QStringList textColumns()
{
    return {QStringLiteral("file_name"), QStringLiteral("path"), QStringLiteral("content")};
}

// One content search while its two stages add to it.
class ContentSearch
{
public:
    ContentSearch(const QSqlDatabase &database, const QString &keyword, int limit,
                  const QStringList &refineWords)
        : m_database(database)
        , m_keyword(keyword)
        , m_refineWords(refineWords)
        , m_limit(limit)
    {}

    // Hits of the full text index by rank. A failure is none of the query's: FTS5 refuses phrases
    // of several words on a table of detail=column, and the second stage serves them.
    void runFullTextStage(const QString &matchExpr);
    // Hits anywhere in the text, newest first, where places are left.
    bool runSubstringStage(QString *error);

    QVariantList results() const { return m_results; }

private:
    bool addSubstringHit(const QSqlQuery &query);
    void addResult(QVariantMap result, const QString &snippet, const QString &content);

    QSqlDatabase m_database;
    QString m_keyword;
    QStringList m_refineWords;
    int m_limit;
    QVariantList m_results;
    QSet<QString> m_deliveredPaths;
};

void ContentSearch::runFullTextStage(const QString &matchExpr)
{
    RowFilter filter;
    filter.condition = QStringLiteral("content_fts MATCH ?");
    filter.patterns = QStringList{matchExpr};
    addWords(
        &filter, m_refineWords,
        {QStringLiteral("fi.file_name"), QStringLiteral("fi.path"), QStringLiteral("fi.content")});
    // Ranks are sorted with ids alone; texts are read for the rows that are kept. Equal ranks stand
    // in the order of their ids.
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    bool ok =
        query.prepare(QStringLiteral("SELECT %1,score,content FROM (SELECT fi.id AS hit,"
                                     "bm25(content_fts) AS score FROM content_fts "
                                     "JOIN file_index fi ON fi.id = content_fts.rowid WHERE %2 "
                                     "ORDER BY score,hit LIMIT ?) "
                                     "CROSS JOIN file_index ON id = hit ORDER BY score,hit")
                          .arg(fileColumns(), filter.condition));
    for (const QString &pattern : qAsConst(filter.patterns))
        query.addBindValue(pattern);
    query.addBindValue(m_limit);
    ok = ok && query.exec();
    while (ok && query.next()) {
        const QString content = query.value(6).toString();
        QVariantMap result = resultOfRow(query);
        // Shown without refine keywords only.
        if (m_refineWords.isEmpty())
            result.insert(QStringLiteral("score"), query.value(5).toDouble());
        addResult(result, makePrimarySnippet(content, m_keyword), content);
    }
    ok = ok && !query.lastError().isValid();
    if (ok)
        qDebug() << "[queryByContent] FTS rows:" << m_results.size();
    else
        qDebug() << "[queryByContent] FTS exec FAILED:" << query.lastError().text();
}

bool ContentSearch::runSubstringStage(QString *error)
{
    RowFilter filter;
    addWords(&filter, {m_keyword}, {QStringLiteral("content")});
    addWords(&filter, m_refineWords, textColumns());
    WalkPolicy policy;
    policy.walkCost = 3; // reading the texts is the larger part of either way
    NewestFirstQuery query(m_database, fileColumns() + QLatin1String(",content"), filter, policy);
    // Rows that stage one delivered come again and are skipped.
    const int before = m_results.size();
    const int limit = m_limit - before + m_deliveredPaths.size();
    const bool ok = query.run(
        limit, [this](const QSqlQuery &row) { return addSubstringHit(row); }, error);
    qDebug() << "[queryByContent] fallback rows:" << m_results.size() - before;
    return ok;
}

bool ContentSearch::addSubstringHit(const QSqlQuery &query)
{
    if (!m_deliveredPaths.contains(query.value(0).toString())) {
        const QString content = query.value(5).toString();
        QString snippet = makeSubstringSnippet(content, m_keyword);
        if (snippet.isEmpty())
            snippet = makePrimarySnippet(content, m_keyword);
        addResult(resultOfRow(query), snippet, content);
    }
    return m_results.size() < m_limit;
}

void ContentSearch::addResult(QVariantMap result, const QString &snippet, const QString &content)
{
    result.insert(QStringLiteral("snippet"), snippet);
    if (!m_refineWords.isEmpty()) {
        result.insert(QStringLiteral("refineSnippet"),
                      makeSnippetAroundAny(content, m_refineWords));
    }
    m_deliveredPaths.insert(result.value(QStringLiteral("path")).toString());
    m_results.append(result);
}

} // namespace

QString fileColumns()
{
    return QStringLiteral("path,file_name,size,modified_ms,category");
}

// Keys in ascending order, so that each goes to the end of the map. The driver delivers texts and
// 64-bit integers as they are wanted.
QVariantMap resultOfRow(const QSqlQuery &query)
{
    static const QVariant noScore(0.0);
    static const QVariant noSnippet{QString()};
    QVariantMap result;
    const auto append = [&result](const QString &key, const QVariant &value) {
        result.insert(result.cend(), key, value);
    };
    append(QStringLiteral("category"), query.value(4));
    append(QStringLiteral("modifiedMs"), query.value(3));
    append(QStringLiteral("name"), query.value(1));
    append(QStringLiteral("path"), query.value(0));
    append(QStringLiteral("score"), noScore);
    append(QStringLiteral("size"), query.value(2));
    append(QStringLiteral("snippet"), noSnippet);
    return result;
}

QVariantList queryByName(const QSqlDatabase &database, const QString &keyword, int limit,
                         const QString &refine, QString *error)
{
    RowFilter filter;
    addWords(&filter, QStringList{keyword} + splitKeywords(refine),
             {QStringLiteral("file_name"), QStringLiteral("path")});
    QVariantList results;
    QString text;
    NewestFirstQuery query(database, fileColumns(), filter);
    const bool ok = query.run(
        limit,
        [&results](const QSqlQuery &row) {
            results.append(resultOfRow(row));
            return true;
        },
        &text);
    if (!ok) {
        qDebug() << "[queryByName] exec FAILED:" << text;
        results.clear();
        if (error)
            *error = text;
    }
    return results;
}

QVariantList queryByContent(const QSqlDatabase &database, const QString &keyword, int limit,
                            const QString &refine, QString *error)
{
    const QStringList refineWords = splitKeywords(refine);
    qDebug() << "[queryByContent] keyword=" << keyword << "refine=" << refineWords;
    const QString matchExpr = buildFtsMatchExpr(keyword);
    qDebug() << "[queryByContent] FTS matchExpr=" << matchExpr;

    ContentSearch search(database, keyword, limit, refineWords);
    if (!matchExpr.isEmpty())
        search.runFullTextStage(matchExpr);
    QString text;
    if (search.results().size() < limit && !search.runSubstringStage(&text)) {
        qDebug() << "[queryByContent] fallback FAILED:" << text;
        if (error)
            *error = text;
    }
    const QVariantList results = search.results();
    qDebug() << "[queryByContent] total returned" << results.size() << "rows (FTS+fallback)";
    return results;
}

} // namespace search
