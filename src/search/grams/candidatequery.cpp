#include "search/grams/candidatequery.h"

#include "search/grams/gramindex.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

namespace search::grams {
namespace {

/// So many rows are looked up one by one and sorted; more are met in the order of time.
constexpr int fewCandidates = 200;

QString lookUp(const QString &columns, const QString &condition)
{
    return QStringLiteral("SELECT %1 FROM (SELECT id AS hit FROM file_index NOT INDEXED "
                          "WHERE %2 ORDER BY modified_ms DESC,id DESC) "
                          "CROSS JOIN file_index ON id = hit ORDER BY modified_ms DESC,id DESC")
        .arg(columns, condition);
}

QString walk(const QString &columns, const QString &condition)
{
    return QStringLiteral("SELECT %1 FROM file_index INDEXED BY idx_file_index_text "
                          "WHERE content IS NOT NULL AND %2 ORDER BY modified_ms DESC,id DESC")
        .arg(columns, condition);
}

} // namespace

bool newestCandidates(const QSqlDatabase &database, const QString &columns,
                      const QString &expression, const RowFilter &filter,
                      const NewestFirstQuery::RowHandler &handler, QString *error)
{
    QStringList conditions;
    if (!expression.isEmpty())
        conditions.append(candidateCondition(QStringLiteral("id")));
    conditions.append(filter.condition.isEmpty()
                          ? QStringLiteral("1")
                          : QLatin1Char('(') + filter.condition + QLatin1Char(')'));
    const QString condition = conditions.join(QLatin1String(" AND "));
    const bool few =
        !expression.isEmpty() && !hasMoreCandidates(database, expression, fewCandidates);
    QSqlQuery query(database);
    query.setForwardOnly(true);
    bool ok = query.prepare(few ? lookUp(columns, condition) : walk(columns, condition));
    if (!expression.isEmpty())
        query.addBindValue(expression);
    for (const QString &pattern : filter.patterns)
        query.addBindValue(pattern);
    ok = ok && query.exec();
    while (ok && query.next()) {
        if (!handler(query))
            return true;
    }
    if (!query.lastError().isValid())
        return true;
    if (error)
        *error = query.lastError().text();
    return false;
}

} // namespace search::grams
