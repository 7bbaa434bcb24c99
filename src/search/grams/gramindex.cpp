#include "search/grams/gramindex.h"

#include "search/grams/textgrams.h"
#include "search/indexwrites.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QVariant>
#include <QVector>

namespace search::grams {
namespace {

/// Comparing the texts of so many rows costs less than a moment.
constexpr int fewMissing = 500;

// The text of a row in the gram index is not kept, so its entries can only be removed by those who
// still know it: the triggers just note the row, whoever changes it.
constexpr const char *statements[] = {
    "CREATE VIRTUAL TABLE content_grams USING fts5(grams,content='',columnsize=0,detail=none,"
    "tokenize='ascii')",
    "CREATE TABLE text_without_grams(id INTEGER PRIMARY KEY)",
    "INSERT INTO text_without_grams SELECT id FROM file_index WHERE content IS NOT NULL",
    // Not OR IGNORE: the statement that fires a trigger decides on conflicts inside it, too.
    "CREATE TRIGGER grams_ai AFTER INSERT ON file_index WHEN new.content IS NOT NULL BEGIN "
    "INSERT INTO text_without_grams SELECT new.id "
    "WHERE new.id NOT IN (SELECT id FROM text_without_grams); END",
    "CREATE TRIGGER grams_au AFTER UPDATE OF content ON file_index BEGIN "
    "INSERT INTO text_without_grams SELECT new.id "
    "WHERE new.id NOT IN (SELECT id FROM text_without_grams); END",
    // Texts of an earlier state of their file.
    "CREATE TABLE stale_texts(id INTEGER PRIMARY KEY)",
    "CREATE TRIGGER stale_au AFTER UPDATE OF size, modified_ms ON file_index WHEN "
    "new.content IS NOT NULL AND (new.size <> old.size OR new.modified_ms <> old.modified_ms) "
    "BEGIN INSERT INTO stale_texts SELECT new.id "
    "WHERE new.id NOT IN (SELECT id FROM stale_texts); END",
    "CREATE TRIGGER stale_content_au AFTER UPDATE OF content ON file_index BEGIN "
    "DELETE FROM stale_texts WHERE id = new.id; END",
    // Rows with a text, newest first.
    "CREATE INDEX idx_file_index_text ON file_index(modified_ms) WHERE content IS NOT NULL",
};

bool hasTables(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    return query.exec(QStringLiteral("SELECT 1 FROM sqlite_master WHERE name = "
                                     "'idx_file_index_text'")) &&
           query.next();
}

bool fail(const QSqlQuery &query, QString *error)
{
    if (error)
        *error = query.lastError().text();
    return false;
}

/// Rows of `sql` up to `most`; -1 after a failure.
int countUpTo(const QSqlDatabase &database, const QString &sql, const QString &value, int most)
{
    QSqlQuery query(database);
    query.setForwardOnly(true);
    if (!query.prepare(QStringLiteral("SELECT count(*) FROM (%1 LIMIT %2)").arg(sql).arg(most)))
        return -1;
    if (!value.isEmpty())
        query.addBindValue(value);
    return query.exec() && query.next() ? query.value(0).toInt() : -1;
}

} // namespace

bool createGramTables(const QSqlDatabase &database, QString *error)
{
    if (hasTables(database))
        return true;
    Transaction transaction(database);
    if (!transaction.begin(error))
        return false;
    QSqlQuery query(database);
    // Another program may have been faster since the look; it then has the lock first.
    for (const char *statement : statements) {
        if (!query.exec(QString::fromLatin1(statement)))
            return fail(query, error);
    }
    return transaction.commit(error);
}

bool canSearchGrams(const QSqlDatabase &database)
{
    const int missing = countUpTo(database, QStringLiteral("SELECT 1 FROM text_without_grams"),
                                  QString(), fewMissing + 1);
    return missing >= 0 && missing <= fewMissing;
}

QString candidateCondition(const QString &column)
{
    return column +
           QLatin1String(" IN (SELECT rowid FROM content_grams WHERE content_grams MATCH ? "
                         "UNION ALL SELECT id FROM text_without_grams)");
}

bool hasMoreCandidates(const QSqlDatabase &database, const QString &expression, int most)
{
    return countUpTo(database,
                     QStringLiteral("SELECT rowid FROM content_grams WHERE content_grams MATCH ?"),
                     expression, most + 1) > most;
}

bool addMissingGrams(const QSqlDatabase &database, int most, bool *left, QString *error)
{
    *left = false;
    QVector<qint64> ids;
    QSqlQuery query(database);
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT id FROM text_without_grams LIMIT %1").arg(most + 1)))
        return fail(query, error);
    while (query.next())
        ids.append(query.value(0).toLongLong());
    query.finish();
    if (ids.isEmpty())
        return true;
    *left = ids.size() > most;
    Transaction transaction(database);
    if (!transaction.begin(error))
        return false;
    GramUpdate update(database);
    update.prepare();
    if (!query.prepare(QStringLiteral("SELECT content FROM file_index WHERE id = ?")))
        return fail(query, error);
    for (int i = 0; i < qMin(most, ids.size()); ++i) {
        query.bindValue(0, ids.at(i));
        if (!query.exec())
            return fail(query, error);
        const QString text = query.next() ? query.value(0).toString() : QString();
        query.finish();
        if (!update.add(ids.at(i), text, &transaction, error))
            return false;
    }
    return transaction.commit(error);
}

GramUpdate::GramUpdate(const QSqlDatabase &database)
    : m_find(database)
    , m_delete(database)
    , m_insert(database)
    , m_done(database)
{
    m_find.setForwardOnly(true);
}

void GramUpdate::prepare()
{
    m_hasTables =
        m_find.prepare(QStringLiteral("SELECT 1 FROM text_without_grams WHERE id = ?")) &&
        m_delete.prepare(QStringLiteral(
            "INSERT INTO content_grams(content_grams, rowid, grams) VALUES('delete', ?, ?)")) &&
        m_insert.prepare(QStringLiteral("INSERT INTO content_grams(rowid, grams) VALUES(?, ?)")) &&
        m_done.prepare(QStringLiteral("DELETE FROM text_without_grams WHERE id = ?"));
}

// A failure costs the row its place in the gram index only, unless it took the transaction along.
bool GramUpdate::run(QSqlQuery *query, Transaction *transaction, QString *error)
{
    return query->exec() || !transaction->isLost() || fail(*query, error);
}

bool GramUpdate::isKnown(qint64 id)
{
    m_find.bindValue(0, id);
    const bool known = m_find.exec() && !m_find.next();
    m_find.finish();
    return known;
}

bool GramUpdate::remove(qint64 id, const QString &oldText, Transaction *transaction, QString *error)
{
    // The delete command must get exactly the grams that the index has.
    if (!m_hasTables || oldText.isEmpty() || !isKnown(id))
        return true;
    m_delete.bindValue(0, id);
    m_delete.bindValue(1, gramsOf(oldText));
    return run(&m_delete, transaction, error);
}

bool GramUpdate::add(qint64 id, const QString &text, Transaction *transaction, QString *error)
{
    if (!m_hasTables)
        return true;
    if (!text.isEmpty()) {
        m_insert.bindValue(0, id);
        m_insert.bindValue(1, gramsOf(text));
        if (!m_insert.exec()) // It stays noted as missing.
            return !transaction->isLost() || fail(m_insert, error);
    }
    return forget(id, transaction, error);
}

bool GramUpdate::forget(qint64 id, Transaction *transaction, QString *error)
{
    if (!m_hasTables)
        return true;
    m_done.bindValue(0, id);
    return run(&m_done, transaction, error);
}

} // namespace search::grams
