#include "search/indexconnection.h"

#include "core/privatefile.h"
#include "search/searchschema.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>
#include <QVariant>

#include <sys/statvfs.h>

namespace search {

namespace {

/// Blocks of the full text index, each of about 4 KiB, up to which it is rewritten at once.
constexpr int kSmallFtsBlocks = 2000;
/// Compacting writes the whole file, for one page in so many at least.
constexpr int kWorthwhileShare = 10;

bool exec(const QSqlDatabase &database, const char *sql, QString *error = nullptr)
{
    QSqlQuery query(database);
    if (query.exec(QString::fromLatin1(sql)))
        return true;
    if (error)
        *error = query.lastError().text();
    return false;
}

int firstValue(const QSqlDatabase &database, const QString &sql)
{
    QSqlQuery query(database);
    return query.exec(sql) && query.next() ? query.value(0).toInt() : -1;
}

bool isOnReadOnlyMedium(const QString &dbPath)
{
    struct statvfs info = {};
    return ::statvfs(QFile::encodeName(dbPath).constData(), &info) == 0 &&
           (info.f_flag & ST_RDONLY) != 0;
}

/// Nothing can change the file, so no locks and no log files are needed, which could not be made.
void useReadOnly(QSqlDatabase *database, const QString &dbPath)
{
    const QByteArray path = QUrl::toPercentEncoding(dbPath, QByteArrayLiteral("/"));
    database->setDatabaseName(QStringLiteral("file:%1?immutable=1").arg(QString::fromLatin1(path)));
    database->setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_OPEN_URI"));
}

/// Busy is not an error of the statement: the first column of its answer tells.
bool emptyLog(const QSqlDatabase &database)
{
    return firstValue(database, QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)")) == 0;
}

bool areFullTextIndexesSmall(const QSqlDatabase &database)
{
    for (const QString &table : fullTextTables()) {
        if (firstValue(database, QStringLiteral("SELECT count(*) FROM (SELECT 1 FROM %1_data "
                                                "LIMIT %2)")
                                     .arg(table)
                                     .arg(kSmallFtsBlocks + 1)) > kSmallFtsBlocks)
            return false;
    }
    return true;
}

/// Merges the parts of each full text index into one, which drops the entries marked as removed. An
/// index in one part is left as it is.
void mergeFullTextIndexes(const QSqlDatabase &database)
{
    for (const QString &table : fullTextTables())
        QSqlQuery(database).exec(
            QStringLiteral("INSERT INTO %1(%1) VALUES('optimize')").arg(table));
}

} // namespace

bool openIndexConnection(const QString &dbPath, const QString &connectionName, IndexAccess *access,
                         QString *error)
{
    QString openError;
    {
        QSqlDatabase database =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connectionName);
        *access = isOnReadOnlyMedium(dbPath) ? IndexAccess::ReadOnly : IndexAccess::ReadWrite;
        if (*access == IndexAccess::ReadOnly) {
            useReadOnly(&database, dbPath);
        } else {
            core::makePrivateFile(dbPath);
            for (const char *suffix : {"-wal", "-shm"})
                core::restrictFile(dbPath + QLatin1String(suffix));
            database.setDatabaseName(dbPath);
        }
        if (database.open()) {
            if (*access == IndexAccess::ReadWrite)
                setConnectionPragmas(database);
            return true;
        }
        openError = database.lastError().text();
    } // the handle goes first, or Qt warns about a connection in use
    QSqlDatabase::removeDatabase(connectionName);
    if (error)
        *error = openError;
    return false;
}

bool eraseRemovedText(const QSqlDatabase &database)
{
    const int busyMs = firstValue(database, QStringLiteral("PRAGMA busy_timeout"));
    exec(database, "PRAGMA busy_timeout = 0");
    if (!erasesTokensAtOnce(database) && areFullTextIndexesSmall(database))
        mergeFullTextIndexes(database);
    const bool done = emptyLog(database);
    QSqlQuery(database).exec(QStringLiteral("PRAGMA busy_timeout = %1").arg(qMax(0, busyMs)));
    return done;
}

bool tidyIndex(const QSqlDatabase &database, QString *error)
{
    const int pages = firstValue(database, QStringLiteral("PRAGMA page_count"));
    const int free = firstValue(database, QStringLiteral("PRAGMA freelist_count"));
    if (pages < 0 || free > pages / kWorthwhileShare)
        return compactIndex(database, error);
    mergeFullTextIndexes(database);
    (void)emptyLog(database);
    return true;
}

bool compactIndex(const QSqlDatabase &database, QString *error)
{
    mergeFullTextIndexes(database);
    (void)exec(database, "PRAGMA wal_checkpoint(TRUNCATE)", error);
    if (!exec(database, "VACUUM", error))
        return false;
    // The compacted pages lie in the log; those before them still in the file.
    (void)emptyLog(database);
    return true;
}

} // namespace search
