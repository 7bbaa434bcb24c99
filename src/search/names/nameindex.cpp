#include "search/names/nameindex.h"

#include "search/indexconnection.h"

#include <QFileInfo>
#include <QSqlQuery>
#include <QUuid>
#include <QVariant>

namespace search::names {
namespace {

constexpr int rowsBetweenLooks = 1024;
constexpr qint64 mostNewerRows = 50000; // to read at once, while a search waits
constexpr qint64 leastReloadMs = 5000;
constexpr int reloadShare = 20; // a reload may take this part of the time

/// Reads the rows of a condition; false if it failed or was stopped.
bool readRows(const QSqlDatabase &database, const QString &condition, const std::atomic<bool> &stop,
              NameArena *arena)
{
    QSqlQuery query(database);
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT id,path,file_name,size,modified_ms FROM file_index ") +
                    condition))
        return false;
    for (int rows = 1; query.next(); ++rows) {
        if (rows % rowsBetweenLooks == 0 && stop)
            return false;
        arena->add(query.value(0).toLongLong(), query.value(1).toString(),
                   query.value(2).toString(), query.value(3).toLongLong(),
                   query.value(4).toLongLong());
    }
    arena->finish();
    return true;
}

qint64 number(const QSqlDatabase &database, const QString &sql)
{
    QSqlQuery query(database);
    return query.exec(sql) && query.next() ? query.value(0).toLongLong() : 0;
}

std::shared_ptr<const NameArena> readAll(const QString &dbPath, const std::atomic<bool> &stop)
{
    const QString name = QUuid::createUuid().toString();
    IndexAccess access = IndexAccess::ReadOnly;
    if (!QFileInfo::exists(dbPath) || !openIndexConnection(dbPath, name, &access, nullptr))
        return nullptr;
    auto arena = std::make_shared<NameArena>();
    bool ok = false;
    {
        const QSqlDatabase database = QSqlDatabase::database(name, false);
        arena->reserve(int(number(database, QStringLiteral("SELECT COUNT(*) FROM file_index"))));
        ok = readRows(database, QStringLiteral("NOT INDEXED"), stop, arena.get());
    }
    QSqlDatabase::removeDatabase(name);
    return ok ? arena : nullptr;
}

} // namespace

NameIndex::NameIndex(const QString &dbPath, std::function<void()> ready)
    : m_dbPath(dbPath)
    , m_ready(std::move(ready))
{}

NameIndex::~NameIndex()
{
    m_stop = true;
    if (m_loader.joinable())
        m_loader.join();
}

void NameIndex::startLoad()
{
    if (m_isLoading)
        return;
    if (m_loader.joinable())
        m_loader.join();
    m_isLoading = true;
    m_loader = std::thread([this] { load(); });
}

void NameIndex::load()
{
    QElapsedTimer clock;
    clock.start();
    Loaded loaded;
    loaded.stamp = FileStamp::of(m_dbPath);
    loaded.rows = readAll(m_dbPath, m_stop);
    loaded.tookMs = clock.elapsed();
    loaded.since.start();
    const bool isNew = loaded.rows != nullptr;
    bool isFirst = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        isFirst = !m_loaded.rows;
        // After a failure the old rows serve on, and the next try has to wait.
        if (!isNew)
            loaded.rows = m_loaded.rows;
        m_loaded = loaded;
    }
    m_isLoading = false;
    if (isNew && isFirst && !m_stop)
        m_ready();
}

NameIndex::View NameIndex::view(const QSqlDatabase &database)
{
    const FileStamp now = FileStamp::of(m_dbPath);
    Loaded loaded;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        // Rows of a file that has been replaced are of no use.
        if (m_loaded.rows && !m_loaded.stamp.isSameFile(now))
            m_loaded = Loaded();
        loaded = m_loaded;
    }
    if (loaded.rows && loaded.stamp.isCurrent(now))
        return {loaded.rows, nullptr};
    const qint64 waitMs = qMax(leastReloadMs, loaded.tookMs * reloadShare);
    if (!loaded.since.isValid() || loaded.since.elapsed() > waitMs)
        startLoad();
    if (!loaded.rows)
        return View();
    if (m_newerThan != loaded.rows.get() || !m_newerStamp.isCurrent(now)) {
        m_newerStamp = now;
        m_newerThan = readNewer(database, *loaded.rows) ? loaded.rows.get() : nullptr;
    }
    return m_newerThan ? View{loaded.rows, m_newer} : View();
}

void NameIndex::waitForRows(const QSqlDatabase &database)
{
    if (!view(database).rows && m_loader.joinable())
        m_loader.join();
}

// Rows that are new, or were touched so that they stand before all others. A row that was touched
// and stays behind them keeps its old place until the next load.
bool NameIndex::readNewer(const QSqlDatabase &database, const NameArena &rows)
{
    const qint64 id = rows.highestId();
    if (number(database, QStringLiteral("SELECT MAX(id) FROM file_index")) - id > mostNewerRows)
        return false;
    const QString newest = QString::number(rows.rowCount() > 0 ? rows.modifiedMs(0) : qint64(0));
    auto newer = std::make_shared<NameArena>();
    const bool ok = readRows(database,
                             QStringLiteral("WHERE id IN (SELECT id FROM file_index WHERE id > %1 "
                                            "UNION SELECT id FROM file_index "
                                            "WHERE modified_ms > %2)")
                                 .arg(QString::number(id), newest),
                             m_stop, newer.get());
    m_newer = newer;
    return ok;
}

} // namespace search::names
