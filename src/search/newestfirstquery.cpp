#include "search/newestfirstquery.h"

#include <QSqlError>

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

bool fail(const QSqlQuery &query, QString *error)
{
    if (error)
        *error = query.lastError().text();
    return false;
}

void bindAll(QSqlQuery *query, int first, const QStringList &values)
{
    for (int i = 0; i < values.size(); ++i)
        query->bindValue(first + i, values.at(i));
}

} // namespace

NewestFirstQuery::NewestFirstQuery(const QSqlDatabase &database, const QString &columns,
                                   const RowFilter &filter, const WalkPolicy &policy)
    : m_database(database)
    , m_columns(columns)
    , m_filter(filter)
    , m_policy(policy)
    , m_windowEnd(database)
    , m_walk(database)
{
    m_windowEnd.setForwardOnly(true);
    m_windowEnd.prepare(QStringLiteral("SELECT modified_ms,id FROM file_index "
                                       "WHERE (modified_ms,id) < (?,?) "
                                       "ORDER BY modified_ms DESC,id DESC LIMIT 1 OFFSET ?"));
    m_walk.setForwardOnly(true);
    m_walk.prepare(QStringLiteral("SELECT %1 FROM file_index WHERE (modified_ms,id) < (?,?) "
                                  "AND (modified_ms,id) >= (?,?) AND (%2) "
                                  "ORDER BY modified_ms DESC,id DESC LIMIT ?")
                       .arg(m_columns, m_filter.condition));
}

bool NewestFirstQuery::run(int limit, const RowHandler &handler, QString *error)
{
    m_handler = handler;
    m_remaining = limit;
    constexpr Position bottom{std::numeric_limits<qint64>::min(),
                              std::numeric_limits<qint64>::min()};
    Position top{std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::max()};
    const ReadSnapshot snapshot(m_database);
    qint64 walked = 0;
    qint64 window = m_policy.firstWindow;
    while (m_remaining > 0) {
        Position end = bottom;
        if (!findWindowEnd(top, window, &end, error) || !walk(top, end, error))
            return false;
        if (end.modifiedMs == bottom.modifiedMs && end.id == bottom.id)
            return true;
        walked += window;
        // One hit more than there was keeps the estimate finite, and on the side of walking on.
        const qint64 needed = m_remaining * walked / (limit - m_remaining + 1);
        if (walked >= m_policy.leastWalk && needed > m_policy.countAbove) {
            if (!countRows(error))
                return false;
            if (needed > m_tableRows / m_policy.walkCost)
                return scanBelow(end, error);
        }
        window = qBound(walked, needed + needed / 4, 8 * walked);
        top = end;
    }
    return true;
}

// Leaves `end` alone if fewer than `rows` rows are left.
bool NewestFirstQuery::findWindowEnd(const Position &top, qint64 rows, Position *end,
                                     QString *error)
{
    m_windowEnd.bindValue(0, top.modifiedMs);
    m_windowEnd.bindValue(1, top.id);
    m_windowEnd.bindValue(2, rows - 1);
    if (!m_windowEnd.exec())
        return fail(m_windowEnd, error);
    if (m_windowEnd.next())
        *end = {m_windowEnd.value(0).toLongLong(), m_windowEnd.value(1).toLongLong()};
    m_windowEnd.finish();
    return true;
}

bool NewestFirstQuery::walk(const Position &top, const Position &end, QString *error)
{
    m_walk.bindValue(0, top.modifiedMs);
    m_walk.bindValue(1, top.id);
    m_walk.bindValue(2, end.modifiedMs);
    m_walk.bindValue(3, end.id);
    bindAll(&m_walk, 4, m_filter.patterns);
    m_walk.bindValue(4 + m_filter.patterns.size(), m_remaining);
    return handRows(&m_walk, error);
}

// The ids come first, so that the sorter never carries the text of a document.
bool NewestFirstQuery::scanBelow(const Position &top, QString *error)
{
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT %1 FROM (SELECT id AS hit FROM file_index NOT INDEXED "
                                 "WHERE (modified_ms,id) < (?,?) AND (%2) "
                                 "ORDER BY modified_ms DESC,id DESC LIMIT ?) "
                                 "CROSS JOIN file_index ON id = hit "
                                 "ORDER BY modified_ms DESC,id DESC")
                      .arg(m_columns, m_filter.condition));
    query.bindValue(0, top.modifiedMs);
    query.bindValue(1, top.id);
    bindAll(&query, 2, m_filter.patterns);
    query.bindValue(2 + m_filter.patterns.size(), m_remaining);
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

bool NewestFirstQuery::handRows(QSqlQuery *query, QString *error)
{
    if (!query->exec())
        return fail(*query, error);
    while (m_remaining > 0 && query->next()) {
        --m_remaining;
        if (!m_handler(*query))
            m_remaining = 0;
    }
    if (query->lastError().isValid())
        return fail(*query, error);
    query->finish();
    return true;
}

} // namespace search
