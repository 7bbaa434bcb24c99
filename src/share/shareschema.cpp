#include "share/shareschema.h"

#include "core/privatefile.h"
#include "share/sqlstatement.h"

#include <QFileInfo>
#include <QSqlQuery>
#include <QStringList>

namespace {

const char *const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS share_defaults (key TEXT PRIMARY KEY, value TEXT)",
    "CREATE TABLE IF NOT EXISTS share_sessions (session_id TEXT PRIMARY KEY,port INTEGER NOT "
    "NULL,password TEXT,duration_min INTEGER NOT NULL DEFAULT 60,max_clients INTEGER NOT NULL "
    "DEFAULT 10,created_at INTEGER NOT NULL,expires_at INTEGER,status TEXT NOT NULL DEFAULT "
    "'active',access_mode TEXT NOT NULL DEFAULT 'download',total_downloads INTEGER NOT NULL "
    "DEFAULT 0,total_uploads INTEGER NOT NULL DEFAULT 0)",
    "CREATE TABLE IF NOT EXISTS share_roots (root_id TEXT PRIMARY KEY,session_id TEXT NOT NULL "
    "REFERENCES share_sessions(session_id) ON DELETE CASCADE,local_path TEXT NOT "
    "NULL,display_name TEXT NOT NULL)",
    "CREATE TABLE IF NOT EXISTS share_access_log (id INTEGER PRIMARY KEY AUTOINCREMENT,session_id "
    "TEXT NOT NULL REFERENCES share_sessions(session_id) ON DELETE CASCADE,client_ip TEXT NOT "
    "NULL,action TEXT NOT NULL,file_path TEXT,timestamp INTEGER NOT NULL)",
    "CREATE INDEX IF NOT EXISTS idx_access_log_session ON share_access_log(session_id, timestamp "
    "DESC)",
};

// Columns of share_sessions that files of earlier releases lack. Their presence is the version.
const struct
{
    const char *column;
    const char *statement;
} kAddedColumns[] = {
    {"access_mode",
     "ALTER TABLE share_sessions ADD COLUMN access_mode TEXT NOT NULL DEFAULT 'download'"},
    {"total_uploads",
     "ALTER TABLE share_sessions ADD COLUMN total_uploads INTEGER NOT NULL DEFAULT 0"},
};

bool readColumns(const QSqlDatabase &database, const QString &table, QStringList *columns,
                 QString *error)
{
    QSqlQuery query(database);
    if (!sqlstatement::run(&query, QStringLiteral("PRAGMA table_info(%1)").arg(table), {}, error))
        return false;
    while (sqlstatement::nextRow(&query, error))
        columns->append(query.value(1).toString());
    return true;
}

} // namespace

bool initShareSchema(const QSqlDatabase &database, QString *error)
{
    for (const char *statement : kSchema) {
        if (!sqlstatement::write(database, statement, {}, error))
            return false;
    }
    QStringList columns;
    if (!readColumns(database, QStringLiteral("share_sessions"), &columns, error))
        return false;
    for (const auto &added : kAddedColumns) {
        if (!columns.contains(QLatin1String(added.column)) &&
            !sqlstatement::write(database, added.statement, {}, error))
            return false;
    }
    return true;
}

void prepareShareDbFile(const QString &path)
{
    if (!core::makePrivateDirectory(QFileInfo(path).absolutePath()))
        return;
    core::makePrivateFile(path);
    // SQLite makes the files beside it with the rights of the file itself.
    for (const char *suffix : {"-wal", "-shm"})
        core::restrictFile(path + QLatin1String(suffix));
}
