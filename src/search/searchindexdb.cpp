#include "search/searchindexdb.h"

#include "core/pathutil.h"
#include "core/privatefile.h"
#include "search/cuttexts.h"
#include "search/indexwrites.h"
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

QString pathToStore(const QFileInfo &file, const QStringList &storedPaths, int i)
{
    const QString stored =
        i < storedPaths.size() ? core::cleanedPath(storedPaths.at(i)) : QString();
    return stored.isEmpty() ? file.absoluteFilePath() : stored;
}

QString defaultDatabasePath()
{
    const QString directory = QDir::homePath() + QLatin1String("/.config/morvane");
    (void)core::makePrivateDirectory(directory); // The driver reports what is missing.
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
    m_textIsRemoved = false;
    if (!search::openIndexConnection(m_dbFilePath, m_connectionName, &m_access, error))
        return false;
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
    return m_access == search::IndexAccess::ReadOnly ? search::checkSchema(connection(), error)
                                                     : search::createSchema(connection(), error);
}

QSqlDatabase SearchIndexDB::connection() const
{
    return QSqlDatabase::database(m_connectionName, false);
}

void SearchIndexDB::close()
{
    if (!QSqlDatabase::contains(m_connectionName))
        return;
    (void)eraseRemovedText();
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
    search::Transaction transaction(database);
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
        query.bindValue(5, search::modifiedMs(file));
        if (!query.exec())
            return fail(error, query.lastError().text());
    }
    query.finish();
    return commit(&transaction, error);
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
    search::Transaction transaction(database);
    if (!transaction.begin(error))
        return false;
    search::ContentUpdate update(database);
    if (!update.prepare(error))
        return false;
    for (auto it = contentByPath.cbegin(); it != contentByPath.cend(); ++it) {
        if (!update.run(it.key(), it.value(), &transaction, error))
            return false;
    }
    if (!commit(&transaction, error))
        return false;
    if (update.hasReplacedText())
        noteRemovedText();
    return true;
}

bool SearchIndexDB::upsertFile(const QFileInfo &file, const QString &content, QString *error)
{
    if (!upsertFileInfoBatch({file}, error))
        return false;
    return content.isEmpty() || updateFileContentBatch({{file.absoluteFilePath(), content}}, error);
}

bool SearchIndexDB::removeFile(const QString &path, QString *error)
{
    return removeWhere(QStringLiteral("path = ?"), {path}, error);
}

bool SearchIndexDB::removeFiles(const QStringList &paths, QString *error)
{
    if (paths.isEmpty())
        return true;
    QStringList places;
    for (int i = 0; i < paths.size(); ++i)
        places.append(QStringLiteral("?"));
    return removeWhere(QStringLiteral("path IN (%1)").arg(places.join(QLatin1Char(','))), paths,
                       error);
}

bool SearchIndexDB::removeByPathPrefix(const QString &path, QString *error)
{
    const QString cleaned = QDir::cleanPath(path);
    if (cleaned.isEmpty())
        return true;
    return removeWhere(QStringLiteral("path = ? OR path LIKE ?"),
                       {cleaned, QString(cleaned + QLatin1String("/%"))}, error);
}

bool SearchIndexDB::removeDirectory(const QString &path, QString *error)
{
    const QString cleaned = QDir::cleanPath(path);
    if (cleaned.isEmpty())
        return true;
    // In the order of the index, "/" is followed by "0".
    const QString base = cleaned == QLatin1String("/") ? QString() : cleaned;
    return removeWhere(
        QStringLiteral("path = ? OR (path >= ? AND path < ?)"),
        {cleaned, QString(base + QLatin1Char('/')), QString(base + QLatin1Char('0'))}, error);
}

bool SearchIndexDB::removeWhere(const QString &condition, const QStringList &values, QString *error)
{
    if (!open(error))
        return false;
    const QSqlDatabase database = connection();
    search::Transaction transaction(database);
    if (!transaction.begin(error))
        return false;
    bool removed = false;
    if (!search::removeRows(database, condition, values, &transaction, &removed, error))
        return false;
    if (!commit(&transaction, error))
        return false;
    if (removed)
        noteRemovedText();
    return true;
}

bool SearchIndexDB::vacuum(QString *error)
{
    return open(error) && search::compactIndex(connection(), error);
}

bool SearchIndexDB::tidyUp(QString *error)
{
    return open(error) && search::tidyIndex(connection(), error);
}

bool SearchIndexDB::addMissingGrams(int most, bool *left, QString *error)
{
    *left = false;
    return open(error) && (m_access == search::IndexAccess::ReadOnly ||
                           search::grams::addMissingGrams(connection(), most, left, error));
}

bool SearchIndexDB::eraseRemovedText()
{
    if (m_textIsRemoved && search::eraseRemovedText(connection()))
        m_textIsRemoved = false;
    return !m_textIsRemoved;
}

bool SearchIndexDB::commit(search::Transaction *transaction, QString *error)
{
    m_commitError.clear();
    return transaction->commit(&m_commitError) || fail(error, commitFailed());
}

void SearchIndexDB::noteRemovedText()
{
    m_textIsRemoved = true;
    if (m_erasesAtOnce)
        (void)eraseRemovedText(); // What is still being read goes with the next change.
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

bool SearchIndexDB::noteCutTexts(const QStringList &paths, bool areCut, QString *error)
{
    if (paths.isEmpty())
        return true;
    return open(error) && search::CutTexts(connection()).set(paths, areCut, error);
}

qint64 SearchIndexDB::cutTextCount()
{
    return open() ? search::CutTexts(connection()).count() : 0;
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
