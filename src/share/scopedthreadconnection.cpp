#include "share/scopedthreadconnection.h"

#include <QAtomicInteger>

namespace {

QAtomicInteger<quint64> g_lastNumber(0);

} // namespace

ScopedThreadConnection::ScopedThreadConnection(const QString &dbPath)
    : m_connectionName(QStringLiteral("fileshare_scoped_%1").arg(++g_lastNumber))
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connectionName);
    database.setDatabaseName(dbPath);
    m_valid = database.open();
}

ScopedThreadConnection::~ScopedThreadConnection()
{
    if (m_connectionName.isEmpty())
        return;
    if (m_valid)
        database().close();
    // No handle may be left in this scope when the name goes.
    QSqlDatabase::removeDatabase(m_connectionName);
}

QSqlDatabase ScopedThreadConnection::database() const
{
    return QSqlDatabase::database(m_connectionName, false);
}
