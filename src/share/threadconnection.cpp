#include "share/threadconnection.h"

#include <QAtomicInt>
#include <QFile>
#include <QThreadStorage>

#include <sys/stat.h>

namespace {

/// Connections that stay open between requests. Each takes three descriptors, and many more threads
/// than work at a time may wait for their clients.
constexpr int kMostKept = 16;

QAtomicInt g_open(0);

QThreadStorage<ThreadConnection *> &connections()
{
    static QThreadStorage<ThreadConnection *> storage;
    return storage;
}

ThreadConnection *current()
{
    return connections().hasLocalData() ? connections().localData() : nullptr;
}

} // namespace

ThreadConnection::ThreadConnection(const QString &dbPath)
    : m_path(dbPath)
    , m_connection(dbPath)
    , m_file(keyOf(dbPath))
    , m_name(m_connection.database().connectionName())
{
    g_open.ref();
}

ThreadConnection::~ThreadConnection()
{
    g_open.deref();
}

ThreadConnection::FileKey ThreadConnection::keyOf(const QString &dbPath)
{
    struct stat info;
    FileKey key;
    if (::stat(QFile::encodeName(dbPath).constData(), &info) == 0)
        key = {info.st_dev, info.st_ino};
    return key;
}

bool ThreadConnection::isFor(const QString &dbPath) const
{
    const FileKey now = keyOf(dbPath);
    return m_connection.isValid() && m_path == dbPath && now.inode != 0 &&
           m_file.device == now.device && m_file.inode == now.inode;
}

QSqlQuery *ThreadConnection::statement(const QSqlDatabase &database, const QString &sql)
{
    ThreadConnection *own = current();
    if (!own || database.connectionName() != own->m_name)
        return nullptr;
    auto found = own->m_statements.find(sql);
    if (found == own->m_statements.end())
        found = own->m_statements.insert(sql, QSqlQuery(database));
    return &*found;
}

ThreadConnection::Use::Use(const QString &dbPath)
{
    if (!current() || !current()->isFor(dbPath))
        connections().setLocalData(new ThreadConnection(dbPath));
}

ThreadConnection::Use::~Use()
{
    if (!isValid() || g_open.loadAcquire() > kMostKept)
        connections().setLocalData(nullptr);
}

bool ThreadConnection::Use::isValid() const
{
    return current()->m_connection.isValid();
}

QSqlDatabase ThreadConnection::Use::database() const
{
    return current()->m_connection.database();
}
