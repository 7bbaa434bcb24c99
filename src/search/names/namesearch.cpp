#include "search/names/namesearch.h"

#include "search/names/namematcher.h"
#include "search/query/folding.h"
#include "search/query/rowconditions.h"
#include "search/searchkeywords.h"
#include "search/searchquery.h"

#include <QHash>
#include <QSet>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariantMap>

#include <algorithm>

namespace search::names {
namespace {

constexpr int idsPerStatement = 500;
constexpr int leastUnsure = 64; // that are looked up together

QStringList nameColumns()
{
    return {QStringLiteral("file_name"), QStringLiteral("path")};
}

enum class Rank { Direct, Folded, Pinyin };

/// A row before it is read from the database.
struct Hit
{
    Rank rank;
    qint64 id;
    qint64 modifiedMs;
    QByteArray path; ///< Folded.
};

/// Hands every row of `ids` that passes the filter to `handler`, in no order.
template <typename Handler>
bool readByIds(const QSqlDatabase &database, const QString &columns, const QVector<qint64> &ids,
               const RowFilter &filter, Handler handler, QString *error)
{
    for (int first = 0; first < ids.size(); first += idsPerStatement) {
        QStringList numbers;
        for (int i = first; i < qMin(first + idsPerStatement, ids.size()); ++i)
            numbers.append(QString::number(ids.at(i)));
        QSqlQuery query(database);
        query.setForwardOnly(true);
        bool ok = query.prepare(QStringLiteral("SELECT %1 FROM file_index WHERE id IN (%2)%3")
                                    .arg(columns, numbers.join(QLatin1Char(',')),
                                         filter.condition.isEmpty()
                                             ? QString()
                                             : QLatin1String(" AND ") + filter.condition));
        for (const QString &pattern : filter.patterns)
            query.addBindValue(pattern);
        ok = ok && query.exec();
        while (ok && query.next())
            handler(query);
        if (!ok || query.lastError().isValid()) {
            if (error)
                *error = query.lastError().text();
            return false;
        }
    }
    return true;
}

/// One search over one view of the index.
class NameSearch
{
public:
    NameSearch(const QSqlDatabase &database, const query::Query &query, int limit,
               const QStringList &refineWords, QString *error)
        : m_database(database)
        , m_query(query)
        , m_limit(limit)
        , m_refineWords(refineWords)
        , m_error(error)
    {}

    /// False after a failure, and where too many rows need a look into the database.
    bool collect(const NameArena &arena, const Cancelled &cancelled);
    /// Rows of this arena stand for those of the same ids collected so far.
    void forgetRowsOf(const NameArena &arena);
    QVariantList results();
    /// What the database finds, then what folding alone has found among the rows collected.
    QVariantList resultsOfDatabase();

private:
    RowFilter directFilter() const;
    bool sortUnsure(const NameMatcher &matcher, const QVector<int> &rows, int *directHits);
    bool addInOrder(const NameMatcher &matcher, const NameHits &hits);
    void addHit(const NameArena &arena, int row, Rank rank);

    QSqlDatabase m_database;
    query::Query m_query;
    int m_limit;
    QStringList m_refineWords;
    QString *m_error;
    QVector<Hit> m_hits;
};

// Filters have been tested already where rows come from an arena.
RowFilter NameSearch::directFilter() const
{
    RowFilter filter;
    query::addTerms(&filter, m_query, nameColumns());
    query::addWords(&filter, m_refineWords, nameColumns());
    return filter;
}

void NameSearch::addHit(const NameArena &arena, int row, Rank rank)
{
    m_hits.append({rank, arena.id(row), arena.modifiedMs(row), arena.path(row)});
}

bool NameSearch::collect(const NameArena &arena, const Cancelled &cancelled)
{
    const NameMatcher matcher(arena, m_query, m_refineWords);
    const NameHits hits = scanNames(matcher, m_limit, cancelled);
    if (cancelled())
        return true;
    if (!addInOrder(matcher, hits))
        return false;
    for (const int row : hits.pinyin)
        addHit(arena, row, Rank::Pinyin);
    return true;
}

// Looks up the unsure rows newest first, and no more of them than it takes to have enough direct
// hits: a frequent word may have thousands.
bool NameSearch::addInOrder(const NameMatcher &matcher, const NameHits &hits)
{
    int direct = 0;
    int nextDirect = 0;
    int nextUnsure = 0;
    for (int share = leastUnsure; direct < m_limit; share *= 2) {
        const QVector<int> rows = hits.unsure.mid(nextUnsure, share);
        nextUnsure += rows.size();
        const bool isLast = nextUnsure == hits.unsure.size();
        for (; nextDirect < hits.direct.size() && direct < m_limit &&
               (isLast || hits.direct.at(nextDirect) < rows.last());
             ++nextDirect, ++direct)
            addHit(matcher.arena(), hits.direct.at(nextDirect), Rank::Direct);
        if (!sortUnsure(matcher, rows, &direct))
            return false;
        if (isLast)
            return hits.isComplete || direct >= m_limit;
    }
    return true;
}

bool NameSearch::sortUnsure(const NameMatcher &matcher, const QVector<int> &rows, int *directHits)
{
    const NameArena &arena = matcher.arena();
    QVector<qint64> ids;
    for (const int row : rows)
        ids.append(arena.id(row));
    RowFilter exact;
    query::addTerms(&exact, m_query, nameColumns(), true);
    QSet<qint64> direct;
    QSet<qint64> kept;
    const auto noteIn = [](QSet<qint64> *set) {
        return [set](const QSqlQuery &query) {
            set->insert(query.value(0).toLongLong());
        };
    };
    if (!readByIds(m_database, QStringLiteral("id"), ids, directFilter(), noteIn(&direct),
                   m_error) ||
        (!exact.condition.isEmpty() &&
         !readByIds(m_database, QStringLiteral("id"), ids, exact, noteIn(&kept), m_error)))
        return false;
    for (const int row : rows) {
        const qint64 id = arena.id(row);
        if (direct.contains(id)) {
            addHit(arena, row, Rank::Direct);
            ++*directHits;
        } else if (matcher.isFoldedMatch(row) && (exact.condition.isEmpty() || kept.contains(id))) {
            addHit(arena, row, Rank::Folded);
        }
    }
    return true;
}

void NameSearch::forgetRowsOf(const NameArena &arena)
{
    QSet<qint64> ids;
    for (int row = 0; row < arena.rowCount(); ++row)
        ids.insert(arena.id(row));
    m_hits.erase(std::remove_if(m_hits.begin(), m_hits.end(),
                                [&ids](const Hit &hit) { return ids.contains(hit.id); }),
                 m_hits.end());
}

QVariantList NameSearch::results()
{
    std::sort(m_hits.begin(), m_hits.end(), [](const Hit &a, const Hit &b) {
        if (a.rank != b.rank)
            return a.rank < b.rank;
        return a.modifiedMs != b.modifiedMs ? a.modifiedMs > b.modifiedMs : a.id > b.id;
    });
    if (m_hits.size() > m_limit)
        m_hits.resize(m_limit);
    QVector<qint64> ids;
    for (const Hit &hit : qAsConst(m_hits))
        ids.append(hit.id);
    QHash<qint64, QVariantMap> rows;
    const bool ok = readByIds(
        m_database, fileColumns() + QLatin1String(",id"), ids, RowFilter(),
        [&rows](const QSqlQuery &query) {
            rows.insert(query.value(5).toLongLong(), resultOfRow(query));
        },
        m_error);
    QVariantList results;
    for (const Hit &hit : qAsConst(m_hits)) {
        QVariantMap row = rows.value(hit.id);
        const QByteArray path =
            query::folded(row.value(QStringLiteral("path")).toString()).toUtf8();
        // Removed since the arena was read, or the id names another file by now.
        if (!ok || row.isEmpty() || (path != hit.path && '/' + path != hit.path))
            continue;
        if (hit.rank == Rank::Pinyin)
            row.insert(QStringLiteral("match"), QStringLiteral("pinyin"));
        results.append(row);
    }
    return results;
}

QVariantList NameSearch::resultsOfDatabase()
{
    RowFilter filter = directFilter();
    query::addFilters(&filter, m_query);
    QVariantList results;
    QSet<QString> paths;
    const auto pathOf = [](const QVariant &row) {
        return row.toMap().value(QStringLiteral("path")).toString();
    };
    NewestFirstQuery query(m_database, fileColumns(), filter);
    const bool ok = query.run(
        m_limit,
        [&results](const QSqlQuery &row) {
            results.append(resultOfRow(row));
            return true;
        },
        m_error);
    if (!ok)
        return QVariantList();
    for (const QVariant &row : qAsConst(results))
        paths.insert(pathOf(row));
    for (const QVariant &row : this->results()) {
        if (results.size() < m_limit && !paths.contains(pathOf(row)))
            results.append(row);
    }
    return results;
}

} // namespace

QVariantList searchNames(const QSqlDatabase &database, NameIndex *index, const QString &line,
                         int limit, const QString &refine, const Cancelled &cancelled,
                         QString *error)
{
    const query::Query query = query::parse(line);
    if (query.isEmpty() || limit < 1)
        return QVariantList();
    NameSearch search(database, query, limit, splitKeywords(refine), error);
    const NameIndex::View view = index->view(database);
    bool ok = view.rows && search.collect(*view.rows, cancelled);
    if (ok && view.newer) {
        search.forgetRowsOf(*view.newer);
        ok = search.collect(*view.newer, cancelled);
    }
    if (cancelled())
        return QVariantList();
    return ok ? search.results() : search.resultsOfDatabase();
}

} // namespace search::names
