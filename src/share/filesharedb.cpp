#include "share/filesharedb.h"

#include "core/shareport.h"
#include "share/scopedthreadconnection.h"
#include "share/shareschema.h"
#include "share/sqlstatement.h"

#include <QCryptographicHash>
#include <QDir>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariantList>

namespace {

const char kSessionColumns[] =
    "SELECT session_id,port,password,duration_min,max_clients,created_at,expires_at,status,"
    "access_mode,total_downloads,total_uploads FROM share_sessions";
const char kRootColumns[] = "SELECT root_id,session_id,local_path,display_name FROM share_roots";

using namespace sqlstatement;

ShareSession sessionFromRow(const QSqlQuery &query)
{
    ShareSession session;
    session.id = query.value(0).toString();
    session.port = query.value(1).toInt();
    session.hasPassword = !query.value(2).toString().isEmpty();
    session.durationMin = query.value(3).toInt();
    session.maxClients = query.value(4).toInt();
    session.createdAt = query.value(5).toLongLong();
    session.expiresAt = query.value(6).toLongLong();
    session.status = query.value(7).toString();
    session.accessMode = query.value(8).toString();
    session.totalDownloads = query.value(9).toInt();
    session.totalUploads = query.value(10).toInt();
    return session;
}

ShareRoot rootFromRow(const QSqlQuery &query)
{
    ShareRoot root;
    root.id = query.value(0).toString();
    root.sessionId = query.value(1).toString();
    root.localPath = query.value(2).toString();
    root.displayName = query.value(3).toString();
    return root;
}

QStringList rootNames(const QSqlDatabase &database, const QString &sessionId, QString *error)
{
    QStringList names;
    Reading reading(database,
                    QStringLiteral("SELECT display_name FROM share_roots WHERE session_id=?"));
    if (!reading.run({sessionId}, error))
        return names;
    while (reading.next(error))
        names.append(reading.row().value(0).toString());
    return names;
}

QList<ShareSession> querySessions(const QSqlDatabase &database, const char *condition,
                                  const QVariantList &values, QString *error)
{
    QList<ShareSession> sessions;
    {
        Reading reading(database, QLatin1String(kSessionColumns) + QLatin1String(condition));
        if (!reading.run(values, error))
            return sessions;
        while (reading.next(error))
            sessions.append(sessionFromRow(reading.row()));
    }
    for (ShareSession &session : sessions)
        session.rootNames = rootNames(database, session.id, error);
    return sessions;
}

QList<ShareRoot> queryRoots(const QSqlDatabase &database, const char *condition, const QString &id,
                            QString *error)
{
    QList<ShareRoot> roots;
    Reading reading(database, QLatin1String(kRootColumns) + QLatin1String(condition));
    if (!reading.run({id}, error))
        return roots;
    while (reading.next(error))
        roots.append(rootFromRow(reading.row()));
    return roots;
}

// "upload" stands for all outcomes of an upload.
QString actionFilter(const QString &action, QVariantList *values)
{
    if (action.isEmpty())
        return QString();
    if (action == QLatin1String("upload"))
        return QStringLiteral(" AND action LIKE 'upload_%'");
    values->append(action);
    return QStringLiteral(" AND action=?");
}

bool runOn(QSqlDatabase database, bool (QSqlDatabase::*call)(), QString *error)
{
    if (!database.isOpen())
        return fail(error, notOpenText());
    return (database.*call)() || fail(error, database.lastError().text());
}

// Runs one reader over a connection that lives for the call.
template <typename Result>
Result onOwnConnection(const QString &dbPath, const QString &id, QString *error,
                       Result (*reader)(const QSqlDatabase &, const QString &, QString *))
{
    const ScopedThreadConnection connection(dbPath);
    if (!connection.isValid()) {
        fail(error, QStringLiteral("Failed to open thread-local database connection."));
        return Result();
    }
    return reader(connection.database(), id, error);
}

} // namespace

FileShareDb::FileShareDb(const QString &path)
    : m_path(path.isEmpty() ? QDir::homePath() + QStringLiteral("/.config/morvane/fileshare.db")
                            : path)
    , m_connectionName(QStringLiteral("fileshare_db_") +
                       QString::number(reinterpret_cast<quintptr>(this), 16))
{}

FileShareDb::~FileShareDb()
{
    close();
}

QSqlDatabase FileShareDb::connection() const
{
    return QSqlDatabase::database(m_connectionName, false);
}

bool FileShareDb::open(QString *error)
{
    if (QSqlDatabase::contains(m_connectionName))
        return true;
    prepareShareDbFile(m_path);
    if (!openConnection(error)) {
        QSqlDatabase::removeDatabase(m_connectionName);
        return false;
    }
    for (const char *pragma : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL",
                               "PRAGMA foreign_keys=ON", "PRAGMA secure_delete=ON"})
        QSqlQuery(connection()).exec(QLatin1String(pragma));
    if (initSchema(error))
        return true;
    close(); // so that a later open() does not take a file without tables for an open one
    return false;
}

bool FileShareDb::openConnection(QString *error)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connectionName);
    database.setDatabaseName(m_path);
    return database.open() || fail(error, database.lastError().text());
}

void FileShareDb::close()
{
    if (!QSqlDatabase::contains(m_connectionName))
        return;
    connection().close();
    QSqlDatabase::removeDatabase(m_connectionName);
}

bool FileShareDb::initSchema(QString *error)
{
    return initShareSchema(connection(), error);
}

bool FileShareDb::createSession(const ShareSession &session, const QString &passwordHash,
                                QString *error)
{
    const QString mode =
        session.accessMode.isEmpty() ? QStringLiteral("download") : session.accessMode;
    return write(connection(),
                 "INSERT INTO share_sessions (session_id,port,password,duration_min,max_clients,"
                 "created_at,expires_at,status,access_mode,total_downloads,total_uploads) VALUES "
                 "(?,?,?,?,?,?,?,?,?,?,?)",
                 {text(session.id), session.port, textOrNull(passwordHash), session.durationMin,
                  session.maxClients, session.createdAt, timeOrNull(session.expiresAt),
                  text(session.status), mode, session.totalDownloads, session.totalUploads},
                 error);
}

bool FileShareDb::updateSessionStatus(const QString &id, const QString &status, QString *error)
{
    return write(connection(), "UPDATE share_sessions SET status=? WHERE session_id=?",
                 {text(status), id}, error);
}

bool FileShareDb::updateSessionPort(const QString &id, int port, QString *error)
{
    return write(connection(), "UPDATE share_sessions SET port=? WHERE session_id=?", {port, id},
                 error);
}

bool FileShareDb::updateSessionTimes(const QString &id, qint64 createdAt, qint64 expiresAt,
                                     QString *error)
{
    return write(connection(),
                 "UPDATE share_sessions SET created_at=?, expires_at=? WHERE session_id=?",
                 {createdAt, timeOrNull(expiresAt), id}, error);
}

bool FileShareDb::updateSessionDownloads(const QString &id, int count, QString *error)
{
    return write(connection(), "UPDATE share_sessions SET total_downloads=? WHERE session_id=?",
                 {count, id}, error);
}

bool FileShareDb::updateSessionUploads(const QString &id, int count, QString *error)
{
    return write(connection(), "UPDATE share_sessions SET total_uploads=? WHERE session_id=?",
                 {count, id}, error);
}

bool FileShareDb::removeSession(const QString &id, QString *error)
{
    return write(connection(), "DELETE FROM share_sessions WHERE session_id=?", {id}, error);
}

bool FileShareDb::addRoot(const ShareRoot &root, QString *error)
{
    return write(
        connection(),
        "INSERT INTO share_roots (root_id,session_id,local_path,display_name) VALUES "
        "(?,?,?,?)",
        {text(root.id), text(root.sessionId), text(root.localPath), text(root.displayName)}, error);
}

bool FileShareDb::removeRootsBySession(const QString &id, QString *error)
{
    return write(connection(), "DELETE FROM share_roots WHERE session_id=?", {id}, error);
}

bool FileShareDb::addAccessLog(const AccessLogEntry &entry, QString *error)
{
    return write(connection(),
                 "INSERT INTO share_access_log (session_id,client_ip,action,file_path,timestamp) "
                 "VALUES (?,?,?,?,?)",
                 {text(entry.sessionId), text(entry.clientIp), text(entry.action), entry.filePath,
                  entry.timestamp},
                 error);
}

bool FileShareDb::saveDefault(const QString &key, const QString &value, QString *error)
{
    return write(connection(), "INSERT OR REPLACE INTO share_defaults (key, value) VALUES (?, ?)",
                 {key, value}, error);
}

bool FileShareDb::beginTransaction(QString *error)
{
    return runOn(connection(), &QSqlDatabase::transaction, error);
}

bool FileShareDb::commitTransaction(QString *error)
{
    return runOn(connection(), &QSqlDatabase::commit, error);
}

bool FileShareDb::rollback(QString *error)
{
    return runOn(connection(), &QSqlDatabase::rollback, error);
}

void FileShareDb::purgeDeleted()
{
    QSqlQuery query(connection());
    (void)run(&query, QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)"), {}, nullptr);
}

ShareSession FileShareDb::session(const QString &id, QString *error) const
{
    return querySession(connection(), id, error);
}

ShareRoot FileShareDb::rootById(const QString &id, QString *error) const
{
    return queryRootById(connection(), id, error);
}

QList<ShareRoot> FileShareDb::rootsForSession(const QString &id, QString *error) const
{
    return queryRootsForSession(connection(), id, error);
}

QString FileShareDb::passwordHash(const QString &id, QString *error) const
{
    return queryPasswordHash(connection(), id, error);
}

QList<ShareSession> FileShareDb::allSessions(QString *error) const
{
    return querySessions(connection(), " ORDER BY created_at DESC", {}, error);
}

QList<ShareSession> FileShareDb::sessionsByStatus(const QString &status, QString *error) const
{
    return querySessions(connection(), " WHERE status=? ORDER BY created_at DESC", {status}, error);
}

QList<AccessLogEntry> FileShareDb::accessLog(const QString &sessionId, const QString &action,
                                             int page, int pageSize, QString *error) const
{
    QVariantList values{sessionId};
    const QString sql = QStringLiteral("SELECT id,session_id,client_ip,action,file_path,timestamp "
                                       "FROM share_access_log WHERE session_id=?") +
                        actionFilter(action, &values) +
                        QStringLiteral(" ORDER BY timestamp DESC LIMIT ? OFFSET ?");
    values << pageSize << qint64(pageSize) * page;

    QList<AccessLogEntry> entries;
    QSqlQuery query(connection());
    if (!run(&query, sql, values, error))
        return entries;
    while (nextRow(&query, error)) {
        AccessLogEntry entry;
        entry.id = query.value(0).toInt();
        entry.sessionId = query.value(1).toString();
        entry.clientIp = query.value(2).toString();
        entry.action = query.value(3).toString();
        entry.filePath = query.value(4).toString();
        entry.timestamp = query.value(5).toLongLong();
        entries.append(entry);
    }
    return entries;
}

int FileShareDb::accessLogCount(const QString &sessionId, const QString &action,
                                QString *error) const
{
    QVariantList values{sessionId};
    const QString sql = QStringLiteral("SELECT COUNT(*) FROM share_access_log WHERE session_id=?") +
                        actionFilter(action, &values);
    QSqlQuery query(connection());
    if (!run(&query, sql, values, error) || !nextRow(&query, error))
        return 0;
    return query.value(0).toInt();
}

QVariantMap FileShareDb::loadDefaults(QString *error) const
{
    QVariantMap defaults{{QStringLiteral("port"), core::kDefaultSharePort},
                         {QStringLiteral("duration_min"), 0},
                         {QStringLiteral("max_clients"), 10},
                         {QStringLiteral("access_mode"), QStringLiteral("download")}};
    QSqlQuery query(connection());
    if (!run(&query, QStringLiteral("SELECT key, value FROM share_defaults"), {}, error))
        return defaults;
    while (nextRow(&query, error))
        defaults.insert(query.value(0).toString(), query.value(1).toString());
    return defaults;
}

ShareSession FileShareDb::querySession(const QSqlDatabase &database, const QString &id,
                                       QString *error)
{
    return querySessions(database, " WHERE session_id=?", {id}, error).value(0);
}

ShareRoot FileShareDb::queryRootById(const QSqlDatabase &database, const QString &id,
                                     QString *error)
{
    return queryRoots(database, " WHERE root_id=?", id, error).value(0);
}

QList<ShareRoot> FileShareDb::queryRootsForSession(const QSqlDatabase &database, const QString &id,
                                                   QString *error)
{
    return queryRoots(database, " WHERE session_id=?", id, error);
}

QString FileShareDb::queryPasswordHash(const QSqlDatabase &database, const QString &id,
                                       QString *error)
{
    Reading reading(database,
                    QStringLiteral("SELECT password FROM share_sessions WHERE session_id=?"));
    if (!reading.run({id}, error) || !reading.next(error))
        return QString();
    return reading.row().value(0).toString();
}

ShareSession FileShareDb::threadSafeSession(const QString &id, QString *error) const
{
    return onOwnConnection(m_path, id, error, &querySession);
}

ShareRoot FileShareDb::threadSafeRootById(const QString &id, QString *error) const
{
    return onOwnConnection(m_path, id, error, &queryRootById);
}

QList<ShareRoot> FileShareDb::threadSafeRootsForSession(const QString &id, QString *error) const
{
    return onOwnConnection(m_path, id, error, &queryRootsForSession);
}

QString FileShareDb::threadSafePasswordHash(const QString &id, QString *error) const
{
    return onOwnConnection(m_path, id, error, &queryPasswordHash);
}

QString FileShareDb::hashPassword(const QString &password)
{
    if (password.isEmpty())
        return QString();
    return QString::fromLatin1(
        QCryptographicHash::hash(password.toUtf8(), QCryptographicHash::Sha256).toHex());
}
