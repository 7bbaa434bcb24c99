#include "search/searchquery.h"

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

struct ContentSearch
{
    QString keyword;
    QStringList refineKeywords;
    int limit = 0;
    QVariantList results;
    QSet<QString> deliveredPaths;
};

// Columns 0 to 4 of every statement here.
QVariantMap resultOfRow(const QSqlQuery &query)
{
    QVariantMap result;
    result.insert(QStringLiteral("path"), query.value(0));
    result.insert(QStringLiteral("name"), query.value(1));
    result.insert(QStringLiteral("size"), query.value(2).toLongLong());
    result.insert(QStringLiteral("modifiedMs"), query.value(3).toLongLong());
    result.insert(QStringLiteral("category"), query.value(4).toString());
    result.insert(QStringLiteral("snippet"), QString());
    result.insert(QStringLiteral("score"), 0.0);
    return result;
}

void bindTimes(QSqlQuery *query, const QString &value, int times)
{
    for (int i = 0; i < times; ++i)
        query->addBindValue(value);
}

void setSnippets(QVariantMap *result, const ContentSearch &search, const QString &snippet,
                 const QString &content)
{
    result->insert(QStringLiteral("snippet"), snippet);
    if (!search.refineKeywords.isEmpty()) {
        result->insert(QStringLiteral("refineSnippet"),
                       makeSnippetAroundAny(content, search.refineKeywords));
    }
}

void runFullTextStage(const QSqlDatabase &database, const QString &matchExpr, ContentSearch *search)
{
    QString sql = QStringLiteral(
        "SELECT fi.path,fi.file_name,fi.size,fi.modified_ms,fi.category,bm25(content_fts),"
        "fi.content FROM content_fts JOIN file_index fi ON fi.id = content_fts.rowid "
        "WHERE content_fts MATCH ? ");
    for (int i = 0; i < search->refineKeywords.size(); ++i) {
        sql += QStringLiteral("AND (fi.file_name LIKE ? OR fi.path LIKE ? OR fi.content LIKE ?) ");
    }
    sql += QStringLiteral("ORDER BY bm25(content_fts) LIMIT ?");

    QSqlQuery query(database);
    query.setForwardOnly(true);
    query.prepare(sql);
    query.addBindValue(matchExpr);
    for (const QString &refine : qAsConst(search->refineKeywords))
        bindTimes(&query, likePattern(refine), 3);
    query.addBindValue(search->limit);
    if (!query.exec()) {
        qDebug() << "[queryByContent] FTS exec FAILED:" << query.lastError().text();
        return;
    }
    while (query.next()) {
        QVariantMap result = resultOfRow(query);
        const QString content = query.value(6).toString();
        setSnippets(&result, *search, makePrimarySnippet(content, search->keyword), content);
        if (search->refineKeywords.isEmpty())
            result.insert(QStringLiteral("score"), query.value(5).toDouble());
        search->deliveredPaths.insert(query.value(0).toString());
        search->results.append(result);
    }
    qDebug() << "[queryByContent] FTS rows:" << search->results.size();
}

void runSubstringStage(const QSqlDatabase &database, ContentSearch *search, QString *error)
{
    QString sql = QStringLiteral("SELECT path,file_name,size,modified_ms,category,content "
                                 "FROM file_index WHERE content LIKE ? ");
    for (int i = 0; i < search->refineKeywords.size(); ++i)
        sql += QStringLiteral("AND (file_name LIKE ? OR path LIKE ? OR content LIKE ?) ");
    sql += QStringLiteral("ORDER BY modified_ms DESC LIMIT ?");

    QSqlQuery query(database);
    query.setForwardOnly(true);
    query.prepare(sql);
    query.addBindValue(likePattern(search->keyword));
    for (const QString &refine : qAsConst(search->refineKeywords))
        bindTimes(&query, likePattern(refine), 3);
    // Rows that stage one delivered come again and are skipped.
    const int remaining = search->limit - search->results.size();
    query.addBindValue(remaining + search->deliveredPaths.size());
    if (!query.exec()) {
        const QString text = query.lastError().text();
        qDebug() << "[queryByContent] fallback FAILED:" << text;
        if (error)
            *error = text;
        return;
    }
    int added = 0;
    while (search->results.size() < search->limit && query.next()) {
        const QString path = query.value(0).toString();
        if (search->deliveredPaths.contains(path))
            continue;
        QVariantMap result = resultOfRow(query);
        const QString content = query.value(5).toString();
        QString snippet = makeSubstringSnippet(content, search->keyword);
        if (snippet.isEmpty())
            snippet = makePrimarySnippet(content, search->keyword);
        setSnippets(&result, *search, snippet, content);
        search->deliveredPaths.insert(path);
        search->results.append(result);
        ++added;
    }
    qDebug() << "[queryByContent] fallback rows:" << added;
}

} // namespace

QVariantList queryByName(const QSqlDatabase &database, const QString &keyword, int limit,
                         const QString &refine, QString *error)
{
    const QStringList refineKeywords = splitKeywords(refine);
    QString sql = QStringLiteral("SELECT path,file_name,size,modified_ms,category FROM file_index "
                                 "WHERE (file_name LIKE ? OR path LIKE ?)");
    for (int i = 0; i < refineKeywords.size(); ++i)
        sql += QStringLiteral(" AND (file_name LIKE ? OR path LIKE ?)");
    sql += QStringLiteral(" ORDER BY modified_ms DESC LIMIT ?");

    QSqlQuery query(database);
    query.setForwardOnly(true);
    query.prepare(sql);
    bindTimes(&query, likePattern(keyword), 2);
    for (const QString &word : refineKeywords)
        bindTimes(&query, likePattern(word), 2);
    query.addBindValue(limit);

    QVariantList results;
    if (!query.exec()) {
        const QString text = query.lastError().text();
        qDebug() << "[queryByName] exec FAILED:" << text;
        if (error)
            *error = text;
        return results;
    }
    while (query.next())
        results.append(resultOfRow(query));
    return results;
}

QVariantList queryByContent(const QSqlDatabase &database, const QString &keyword, int limit,
                            const QString &refine, QString *error)
{
    ContentSearch search;
    search.keyword = keyword;
    search.refineKeywords = splitKeywords(refine);
    search.limit = limit;
    qDebug() << "[queryByContent] keyword=" << keyword << "refine=" << search.refineKeywords;

    const QString matchExpr = buildFtsMatchExpr(keyword);
    qDebug() << "[queryByContent] FTS matchExpr=" << matchExpr;
    if (!matchExpr.isEmpty())
        runFullTextStage(database, matchExpr, &search);
    if (search.results.size() < limit)
        runSubstringStage(database, &search, error);
    qDebug() << "[queryByContent] total returned" << search.results.size() << "rows (FTS+fallback)";
    return search.results;
}

} // namespace search
