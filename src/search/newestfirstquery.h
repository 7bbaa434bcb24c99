#pragma once

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QStringList>

#include <functional>

namespace search {

/// A condition over the columns of file_index with the LIKE patterns to bind, in order.
struct RowFilter
{
    QString condition;
    QStringList patterns;
};

/// When to give up walking the time index. The unit is one row.
struct WalkPolicy
{
    int firstWindow = 500;  // walked before anything is estimated
    int leastWalk = 4000;   // walked before a table scan is considered
    int sureHits = 8;       // hits in what was walked that make an estimate of a near end good
    int countAbove = 16000; // counting the table must cost little against this many walked rows
    int walkCost = 6;       // rows that a table scan passes in the time of one row of a walk
};

/// The rows that pass a filter, newest first, equal times by descending id: exactly what
/// "SELECT ... WHERE <condition> ORDER BY modified_ms DESC LIMIT <n>" gives on the time index.
///
/// SQLite answers that statement by walking the index, with a random look-up of every row. That is
/// best for frequent words, and several times slower than reading the table in its own order for
/// rare ones. So the walk is done in windows, and as soon as the hits so far tell that the rest
/// would cost more than a scan, the scan takes over.
class NewestFirstQuery
{
public:
    /// Gets each row, positioned, with the columns asked for; returns false to stop.
    using RowHandler = std::function<bool(const QSqlQuery &)>;

    /// `columns` is a list of columns of file_index, separated by commas.
    NewestFirstQuery(const QSqlDatabase &database, const QString &columns, const RowFilter &filter,
                     const WalkPolicy &policy = WalkPolicy());

    /// Hands at most `limit` rows to `handler`, all from one snapshot. After a failure, which fills
    /// `error` with the driver's text, some rows may have been handed over already. Call once.
    [[nodiscard]] bool run(int limit, const RowHandler &handler, QString *error);

private:
    bool findWindowEnd(qint64 newest, qint64 rows, qint64 *oldest, QString *error);
    bool walk(qint64 newest, qint64 oldest, QString *error);
    bool scan(qint64 newest, QString *error);
    bool countRows(QString *error);
    bool handRows(QSqlQuery *query, QString *error);

    QSqlDatabase m_database;
    QString m_columns;
    RowFilter m_filter;
    WalkPolicy m_policy;
    RowHandler m_handler;
    int m_remaining = 0;     // rows still wanted; 0 ends the query
    qint64 m_tableRows = -1; // -1 until counted
    QSqlQuery m_windowEnd;
};

} // namespace search
