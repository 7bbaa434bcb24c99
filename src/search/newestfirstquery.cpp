#include "search/newestfirstquery.h"

#include <QSqlError>
#include <QVariant>

#include <limits>

namespace search {
namespace {

// Keeps one snapshot for the statements of a query. A write in between could otherwise move a row
// from one window into another. Only reads happen inside, so there is nothing to roll back.
class ReadSnapshot
{
public:
    explicit ReadSnapshot(const QSqlDatabase &database)
        : m_query(database)
        , m_held(m_query.exec(QStringLiteral("BEGIN")))
    {}
    ~ReadSnapshot()
    {
        if (m_held)
            m_query.exec(QStringLiteral("COMMIT"));
    }

    ReadSnapshot(const ReadSnapshot &) = delete;
    ReadSnapshot &operator=(const ReadSnapshot &) = delete;

private:
    QSqlQuery m_query;
    bool m_held;
};

constexpr qint64 endOfTime = std::numeric_limits<qint64>::min();

bool fail(const QSqlQuery &query, QString *error)
{
    if (error)
        *error = query.lastError().text();
    return false;
}

} // namespace

NewestFirstQuery::NewestFirstQuery(const QSqlDatabase &database, const QString &columns,
                                   const RowFilter &filter, const WalkPolicy &policy)
    : m_database(database)
    , m_columns(columns)
    , m_filter(filter)
    , m_policy(policy)
    , m_windowEnd(database)
{
    m_windowEnd.setForwardOnly(true);
}

bool NewestFirstQuery::run(int limit, const RowHandler &handler, QString *error)
{
    m_handler = handler;
    m_remaining = limit;
    const ReadSnapshot snapshot(m_database);
    if (!m_windowEnd.prepare(
            QStringLiteral("SELECT modified_ms FROM file_index WHERE modified_ms <= ? "
                           "ORDER BY modified_ms DESC LIMIT 1 OFFSET ?")))
        return fail(m_windowEnd, error);
    // A window covers a span of time, so equal times are never divided.
    qint64 newest = std::numeric_limits<qint64>::max();
    qint64 window = m_policy.firstWindow;
    qint64 walked = 0;
    while (m_remaining > 0) {
        qint64 oldest = endOfTime;
        if (!findWindowEnd(newest, window, &oldest, error) || !walk(newest, oldest, error))
            return false;
        if (oldest == endOfTime)
            return true;
        newest = oldest - 1;
        walked += window;
        const int hits = limit - m_remaining;
        // One hit more than there was keeps the estimate finite, and on the side of walking on.
        const qint64 needed = m_remaining * walked / (hits + 1);
        if (hits >= m_policy.sureHits && needed <= m_policy.countAbove)
            return walk(newest, endOfTime, error);
        if (walked >= m_policy.leastWalk && needed > m_policy.countAbove) {
            if (!countRows(error))
                return false;
            if (needed > m_tableRows / m_policy.walkCost)
                return scan(newest, error);
        }
        window = qBound(walked, needed + needed / 4, 8 * walked);
    }
    return true;
}

// The time of the row that is `rows` rows down from `newest`. Leaves `oldest` alone if there are
// fewer.
bool NewestFirstQuery::findWindowEnd(qint64 newest, qint64 rows, qint64 *oldest, QString *error)
{
    m_windowEnd.bindValue(0, newest);
    m_windowEnd.bindValue(1, rows - 1);
    if (!m_windowEnd.exec())
        return fail(m_windowEnd, error);
    if (m_windowEnd.next())
        *oldest = m_windowEnd.value(0).toLongLong();
    m_windowEnd.finish();
    return true;
}

// Without an end of the span a row costs one comparison less.
bool NewestFirstQuery::walk(qint64 newest, qint64 oldest, QString *error)
{
    const bool bounded = oldest != endOfTime;
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    if (!query.prepare(QStringLiteral("SELECT %1 FROM file_index WHERE modified_ms <= ? %2AND (%3) "
                                      "ORDER BY modified_ms DESC,id DESC LIMIT ?")
                           .arg(m_columns,
                                bounded ? QStringLiteral("AND modified_ms >= ? ") : QString(),
                                m_filter.condition)))
        return fail(query, error);
    query.addBindValue(newest);
    if (bounded)
        query.addBindValue(oldest);
    return handRows(&query, error);
}

// The ids come first, so that the sorter never carries the text of a document.
bool NewestFirstQuery::scan(qint64 newest, QString *error)
{
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    if (!query.prepare(
            QStringLiteral("SELECT %1 FROM (SELECT id AS hit FROM file_index NOT INDEXED "
                           "WHERE modified_ms <= ? AND (%2) "
                           "ORDER BY modified_ms DESC,id DESC LIMIT ?) "
                           "CROSS JOIN file_index ON id = hit "
                           "ORDER BY modified_ms DESC,id DESC")
                .arg(m_columns, m_filter.condition)))
        return fail(query, error);
    query.addBindValue(newest);
    return handRows(&query, error);
}

bool NewestFirstQuery::countRows(QString *error)
{
    if (m_tableRows >= 0)
        return true;
    QSqlQuery query(m_database);
    if (!query.exec(QStringLiteral("SELECT COUNT(*) FROM file_index")) || !query.next())
        return fail(query, error);
    m_tableRows = query.value(0).toLongLong();
    return true;
}

// The patterns and the limit are the last to be bound.
bool NewestFirstQuery::handRows(QSqlQuery *query, QString *error)
{
    for (const QString &pattern : qAsConst(m_filter.patterns))
        query->addBindValue(pattern);
    query->addBindValue(m_remaining);
    if (!query->exec())
        return fail(*query, error);
    while (m_remaining > 0 && query->next()) {
        --m_remaining;
        if (!m_handler(*query))
            m_remaining = 0;
    }
    if (query->lastError().isValid())
        return fail(*query, error);
    return true;
}

} // namespace search
