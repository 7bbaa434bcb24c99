#include "search/searchindexdb.h"

#include "search/searchcategory.h"
#include "search/searchquery.h"
#include "search/searchschema.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>

#include <sys/stat.h>

namespace {

void setError(QString *error, const QString &text)
{
    if (error)
        *error = text;
}

bool fail(QString *error, const QString &text)
{
    setError(error, text);
    return false;
}

bool prepareQuery(QSqlQuery *query, const QString &sql, QString *error)
{
    return query->prepare(sql) || fail(error, query->lastError().text());
}

// One write transaction. What was not committed is rolled back at the latest by the destructor.
class Transaction
{
public:
    explicit Transaction(const QSqlDatabase &database)
        : m_query(database)
    {}
    ~Transaction() { rollback(); }

    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    bool begin(QString *error)
    {
        m_active = m_query.exec(QStringLiteral("BEGIN"));
        return m_active || fail(error, m_query.lastError().text());
    }

    bool commit(QString *error)
    {
        if (!m_query.exec(QStringLiteral("COMMIT")))
            return fail(error, QStringLiteral("commit failed"));
        m_active = false;
        return true;
    }

    // SQLite ends the whole transaction by itself after some failures, a full disk among them. The
    // statements that follow would then be committed one by one.
    bool isLost()
    {
        if (!m_query.exec(QStringLiteral("BEGIN")))
            return false;
        rollback();
        return true;
    }

private:
    void rollback()
    {
        if (m_active)
            m_query.exec(QStringLiteral("ROLLBACK"));
        m_active = false;
    }

    QSqlQuery m_query;
    bool m_active = false;
};

QString pathToStore(const QFileInfo &file, const QStringList &storedPaths, int i)
{
    const QString stored = i < storedPaths.size() ? storedPaths.at(i).trimmed() : QString();
    return stored.isEmpty() ? file.absoluteFilePath() : QDir::cleanPath(stored);
}

// QFileInfo makes local time of what the file system tells, which is turned back here: four looks
// at the file of the time zone. One more look at the file itself costs a quarter of that.
qint64 modifiedMs(const QFileInfo &file)
{
    struct stat status;
    if (::stat(QFile::encodeName(file.filePath()).constData(), &status) != 0)
        return file.lastModified().toMSecsSinceEpoch();
    return qint64(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000;
}

// The prepared statements that change the text of a row and its full text entry together.
class ContentUpdate
{
public:
    explicit ContentUpdate(const QSqlDatabase &database)
        : m_select(database)
        , m_update(database)
        , m_deleteTokens(database)
        , m_insertTokens(database)
    {
        m_select.setForwardOnly(true);
    }

    bool prepare(QString *error)
    {
        // Without a full text index the texts are kept all the same.
        m_deleteTokens.prepare(QStringLiteral(
            "INSERT INTO content_fts(content_fts, rowid, content) VALUES('delete', ?, ?)"));
        m_insertTokens.prepare(
            QStringLiteral("INSERT INTO content_fts(rowid, content) VALUES(?, ?)"));
        return prepareQuery(&m_select,
                            QStringLiteral("SELECT id, content FROM file_index WHERE path = ?"),
                            error) &&
               prepareQuery(&m_update,
                            QStringLiteral("UPDATE file_index SET content = ? WHERE path = ?"),
                            error);
    }

    bool run(const QString &path, const QString &content, Transaction *transaction, QString *error)
    {
        m_select.bindValue(0, path);
        if (!m_select.exec())
            return fail(error, m_select.lastError().text());
        qint64 id = -1;
        QString oldContent;
        if (m_select.next()) {
            id = m_select.value(0).toLongLong();
            oldContent = m_select.value(1).toString();
        }
        m_select.finish(); // no read cursor on the row while it changes

        m_update.bindValue(0, content);
        m_update.bindValue(1, path);
        if (!m_update.exec())
            return fail(error, m_update.lastError().text());
        if (id < 0)
            return true;
        // The delete command must get exactly the text that was indexed.
        return (oldContent.isEmpty() ||
                keepTokens(&m_deleteTokens, id, oldContent, transaction, error)) &&
               (content.isEmpty() || keepTokens(&m_insertTokens, id, content, transaction, error));
    }

private:
    // A failure here costs the row its full text entry only, unless it took the transaction along.
    static bool keepTokens(QSqlQuery *query, qint64 id, const QString &content,
                           Transaction *transaction, QString *error)
    {
        query->bindValue(0, id);
        query->bindValue(1, content);
        if (query->exec())
            return true;
        const QString text = query->lastError().text();
        return !transaction->isLost() || fail(error, text);
    }

    QSqlQuery m_select;
    QSqlQuery m_update;
    QSqlQuery m_deleteTokens;
    QSqlQuery m_insertTokens;
};

QString defaultDatabasePath()
{
    const QString directory = QDir::homePath() + QLatin1String("/.config/morvane");
    QDir().mkpath(directory);
    return directory + QLatin1String("/search_index.db");
}

} // namespace

SearchIndexDB::SearchIndexDB(const QString &dbPath)
    : m_dbFilePath(dbPath.isEmpty() ? defaultDatabasePath() : dbPath)
    , m_connectionName(QUuid::createUuid().toString())
{}

SearchIndexDB::~SearchIndexDB()
{
    close();
}

bool SearchIndexDB::open(QString *error)
{
    if (QSqlDatabase::contains(m_connectionName))
        return true;
    QString openError;
    {
        QSqlDatabase database =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connectionName);
        database.setDatabaseName(m_dbFilePath);
        if (database.open()) {
            search::setConnectionPragmas(database);
        } else {
            openError = database.lastError().text();
        }
    }
    if (!openError.isEmpty()) {
        QSqlDatabase::removeDatabase(m_connectionName);
        return fail(error, openError);
    }
    if (initSchema(error))
        return true;
    // A file whose schema is not ready must not pass for open at the next call.
    close();
    return false;
}

bool SearchIndexDB::initSchema(QString *error)
{
    if (!QSqlDatabase::contains(m_connectionName))
        return fail(error, QStringLiteral("database not open"));
    return search::createSchema(connection(), error);
}

QSqlDatabase SearchIndexDB::connection() const
{
    return QSqlDatabase::database(m_connectionName, false);
}

void SearchIndexDB::close()
{
    if (!QSqlDatabase::contains(m_connectionName))
        return;
    {
        QSqlDatabase database = connection();
        if (database.isOpen())
            database.close();
    } // the handle goes first, or Qt warns about a connection in use
    QSqlDatabase::removeDatabase(m_connectionName);
}

bool SearchIndexDB::upsertFileInfoBatch(const QList<QFileInfo> &files,
                                        const QStringList &storedPaths, QString *error)
{
    if (files.isEmpty())
        return true;
    if (!open(error))
        return false;
    const QSqlDatabase database = connection();
    Transaction transaction(database);
    if (!transaction.begin(error))
        return false;
    // A conflict leaves `content` alone: a metadata refresh never loses the text of a file.
    QSqlQuery query(database);
    const QString sql = QStringLiteral(
        "INSERT INTO file_index(path,file_name,ext,category,size,modified_ms,indexed_at) "
        "VALUES(?,?,?,?,?,?,datetime('now')) ON CONFLICT(path) DO UPDATE SET "
        "file_name=excluded.file_name,ext=excluded.ext,category=excluded.category,"
        "size=excluded.size,modified_ms=excluded.modified_ms,indexed_at=excluded.indexed_at");
    if (!prepareQuery(&query, sql, error))
        return false;
    for (int i = 0; i < files.size(); ++i) {
        const QFileInfo &file = files.at(i);
        const QString path = pathToStore(file, storedPaths, i);
        if (path.isEmpty())
            continue;
        const QString ext = file.suffix().toLower();
        query.bindValue(0, path);
        query.bindValue(1, file.fileName());
        query.bindValue(2, ext);
        query.bindValue(3, search::categoryForSuffix(ext));
        query.bindValue(4, file.size());
        query.bindValue(5, modifiedMs(file));
        if (!query.exec())
            return fail(error, query.lastError().text());
    }
    query.finish();
    return transaction.commit(error);
}

bool SearchIndexDB::upsertFileInfoBatch(const QList<QFileInfo> &files, QString *error)
{
    return upsertFileInfoBatch(files, QStringList(), error);
}

bool SearchIndexDB::updateFileContentBatch(const QMap<QString, QString> &contentByPath,
                                           QString *error)
{
    if (contentByPath.isEmpty())
        return true;
    if (!open(error))
        return false;
    const QSqlDatabase database = connection();
    Transaction transaction(database);
    if (!transaction.begin(error))
        return false;
    ContentUpdate update(database);
    if (!update.prepare(error))
        return false;
    for (auto it = contentByPath.cbegin(); it != contentByPath.cend(); ++it) {
        if (!update.run(it.key(), it.value(), &transaction, error))
            return false;
    }
    return transaction.commit(error);
}

bool SearchIndexDB::upsertFile(const QFileInfo &file, const QString &content, QString *error)
{
    if (!upsertFileInfoBatch({file}, error))
        return false;
    return content.isEmpty() || updateFileContentBatch({{file.absoluteFilePath(), content}}, error);
}

bool SearchIndexDB::removeFile(const QString &path, QString *error)
{
    if (!open(error))
        return false;
    QSqlQuery query(connection());
    if (!prepareQuery(&query, QStringLiteral("DELETE FROM file_index WHERE path = ?"), error))
        return false;
    query.addBindValue(path);
    return query.exec() || fail(error, query.lastError().text());
}

bool SearchIndexDB::removeByPathPrefix(const QString &path, QString *error)
{
    const QString cleaned = QDir::cleanPath(path);
    if (cleaned.isEmpty())
        return true;
    if (!open(error))
        return false;
    const QSqlDatabase database = connection();
    Transaction transaction(database);
    if (!transaction.begin(error))
        return false;
    QSqlQuery query(database);
    const QString sql = QStringLiteral("DELETE FROM file_index WHERE path = ? OR path LIKE ?");
    if (!prepareQuery(&query, sql, error))
        return false;
    query.addBindValue(cleaned);
    query.addBindValue(QString(cleaned + QLatin1String("/%")));
    if (!query.exec())
        return fail(error, query.lastError().text());
    query.finish();
    return transaction.commit(error);
}

bool SearchIndexDB::vacuum(QString *error)
{
    if (!open(error))
        return false;
    QSqlQuery query(connection());
    // A checkpoint that readers hold up is no reason not to compact.
    if (!query.exec(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)")))
        setError(error, query.lastError().text());
    return query.exec(QStringLiteral("VACUUM")) || fail(error, query.lastError().text());
}

QVariantMap SearchIndexDB::indexStats(QString *error)
{
    QVariantMap stats{{QStringLiteral("fileCount"), qint64(0)},
                      {QStringLiteral("ftsCount"), qint64(0)},
                      {QStringLiteral("lastUpdatedMs"), qint64(0)}};
    if (!open(error))
        return stats;
    const auto count = [this, &stats](const QString &key, const QString &sql) {
        QSqlQuery query(connection());
        if (query.exec(sql) && query.next())
            stats.insert(key, query.value(0).toLongLong());
    };
    count(QStringLiteral("fileCount"), QStringLiteral("SELECT COUNT(*) FROM file_index"));
    count(QStringLiteral("ftsCount"),
          QStringLiteral("SELECT COUNT(*) FROM file_index WHERE content IS NOT NULL "
                         "AND length(content) > 0"));
    // The index has no record of its last build; the file's own time stands for it.
    const QFileInfo file(m_dbFilePath);
    if (file.exists())
        stats.insert(QStringLiteral("lastUpdatedMs"), file.lastModified().toMSecsSinceEpoch());
    return stats;
}

QVariantList SearchIndexDB::queryByName(const QString &keyword, int limit, const QString &refine,
                                        QString *error)
{
    const QString trimmed = keyword.trimmed();
    if (trimmed.isEmpty() || limit < 1 || !open(error))
        return QVariantList();
    return search::queryByName(connection(), trimmed, limit, refine, error);
}

QVariantList SearchIndexDB::queryByContent(const QString &keyword, int limit, const QString &refine,
                                           QString *error)
{
    const QString trimmed = keyword.trimmed();
    if (trimmed.isEmpty() || limit < 1 || !open(error))
        return QVariantList();
    return search::queryByContent(connection(), trimmed, limit, refine, error);
}

QVariantList SearchIndexDB::searchByName(const QString &keyword, int limit, const QString &refine,
                                         QString *error)
{
    return queryByName(keyword, limit, refine, error);
}

QVariantList SearchIndexDB::searchByContent(const QString &keyword, int limit,
                                            const QString &refine, QString *error)
{
    return queryByContent(keyword, limit, refine, error);
}
