#include "search/sqlinterrupter.h"

#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlQuery>
#include <QVariant>

#include <cstring>
#include <sqlite3.h>

namespace search {
namespace {

/// Null where the driver is not known to be built on this very library: a plug-in may bring one of
/// its own.
sqlite3 *handleOf(const QSqlDatabase &database)
{
    const QVariant handle = database.driver()->handle();
    if (!handle.isValid() || std::strcmp(handle.typeName(), "sqlite3*") != 0)
        return nullptr;
    QSqlQuery query(database);
    if (!query.exec(QStringLiteral("SELECT sqlite_source_id()")) || !query.next() ||
        query.value(0).toString() != QLatin1String(sqlite3_sourceid()))
        return nullptr;
    return *static_cast<sqlite3 *const *>(handle.constData());
}

} // namespace

SqlInterrupter::Hold::Hold(SqlInterrupter *interrupter, const QSqlDatabase &database)
    : m_interrupter(interrupter)
{
    m_interrupter->set(handleOf(database));
}

SqlInterrupter::Hold::~Hold()
{
    m_interrupter->set(nullptr);
}

void SqlInterrupter::set(sqlite3 *handle)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_handle = handle;
}

void SqlInterrupter::interrupt()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_handle)
        sqlite3_interrupt(m_handle);
}

} // namespace search
