#include "search/searchschema.h"

#include "search/cuttexts.h"
#include "search/grams/gramindex.h"

#include <QDebug>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>
#include <QVersionNumber>

namespace search {
namespace {

constexpr const char *connectionPragmas[] = {
    "PRAGMA journal_mode=WAL",
    "PRAGMA synchronous=NORMAL",
    "PRAGMA page_size=4096",
    "PRAGMA secure_delete=ON",
};

// The text of a document is stored once, in file_index; content_fts reads it from there. There is
// no update trigger: the delete command of FTS5 needs the old text, which an update would already
// have replaced, so updateFileContentBatch() keeps content_fts by hand. The drops clear update
// triggers that earlier versions left in existing files.
constexpr const char *schemaStatements[] = {
    "CREATE TABLE IF NOT EXISTS file_index(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    "path TEXT NOT NULL UNIQUE,file_name TEXT NOT NULL,ext TEXT,category TEXT DEFAULT 'other',"
    "size INTEGER NOT NULL DEFAULT 0,modified_ms INTEGER NOT NULL DEFAULT 0,indexed_at TEXT,"
    "content TEXT)",
    "CREATE INDEX IF NOT EXISTS idx_file_index_name ON file_index(file_name COLLATE NOCASE)",
    "CREATE INDEX IF NOT EXISTS idx_file_index_ext ON file_index(ext)",
    "CREATE INDEX IF NOT EXISTS idx_file_index_modified ON file_index(modified_ms)",
    "CREATE VIRTUAL TABLE IF NOT EXISTS content_fts USING fts5(content,content='file_index',"
    "content_rowid='id',tokenize='unicode61 remove_diacritics 2',detail=column)",
    "CREATE TRIGGER IF NOT EXISTS fts_ai AFTER INSERT ON file_index WHEN new.content IS NOT NULL "
    "AND length(new.content) > 0 BEGIN INSERT INTO content_fts(rowid, content) VALUES(new.id, "
    "new.content); END",
    "CREATE TRIGGER IF NOT EXISTS fts_ad AFTER DELETE ON file_index WHEN old.content IS NOT NULL "
    "AND length(old.content) > 0 BEGIN INSERT INTO content_fts(content_fts, rowid, content) "
    "VALUES('delete', old.id, old.content); END",
    "DROP TRIGGER IF EXISTS fts_au",
    "DROP TRIGGER IF EXISTS fts_au_del",
    "DROP TRIGGER IF EXISTS fts_au_ins",
    "CREATE TABLE IF NOT EXISTS index_meta(key TEXT PRIMARY KEY, value TEXT)",
};

/// The setting came with SQLite 3.42; only the library that runs decides.
bool knowsSecureDelete(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    return query.exec(QStringLiteral("SELECT sqlite_version()")) && query.next() &&
           QVersionNumber::fromString(query.value(0).toString()) >= QVersionNumber(3, 42);
}

} // namespace

void setConnectionPragmas(const QSqlDatabase &database)
{
    for (const char *pragma : connectionPragmas)
        QSqlQuery(database).exec(QString::fromLatin1(pragma));
}

bool createSchema(const QSqlDatabase &database, QString *error)
{
    for (const char *statement : schemaStatements) {
        QSqlQuery query(database);
        if (query.exec(QString::fromLatin1(statement)))
            continue;
        if (error)
            *error = query.lastError().text();
        return false;
    }
    if (!CutTexts(database).prepare(error))
        return false;
    // Without it the texts themselves are compared, as before it was there.
    QString gramError;
    if (!grams::createGramTables(database, &gramError))
        qWarning().noquote() << "[SearchIndexDB] no gram index:" << gramError;
    if (!erasesTokensAtOnce(database) && knowsSecureDelete(database)) {
        for (const QString &table : fullTextTables()) {
            QSqlQuery(database).exec(
                QStringLiteral("INSERT INTO %1(%1, rank) VALUES('secure-delete', 1)").arg(table));
        }
    }
    return true;
}

QStringList fullTextTables()
{
    return {QStringLiteral("content_fts"), QStringLiteral("content_grams")};
}

bool checkSchema(const QSqlDatabase &database, QString *error)
{
    QSqlQuery query(database);
    if (query.exec(QStringLiteral("SELECT 1 FROM file_index LIMIT 1")))
        return true;
    if (error)
        *error = query.lastError().text();
    return false;
}

bool erasesTokensAtOnce(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    return query.exec(QStringLiteral(
               "SELECT 1 FROM content_fts_config WHERE k = 'secure-delete' AND v = 1")) &&
           query.next();
}

} // namespace search
