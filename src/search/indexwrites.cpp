#include "search/indexwrites.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QVariant>

#include <sys/stat.h>

namespace search {

namespace {

bool fail(QString *error, const QSqlQuery &query)
{
    if (error)
        *error = query.lastError().text();
    return false;
}

bool prepareBound(QSqlQuery *query, const QString &sql, const QStringList &values, QString *error)
{
    if (!query->prepare(sql))
        return fail(error, *query);
    for (const QString &value : values)
        query->addBindValue(value);
    return true;
}

/// A failure here costs the row its full text entry only, unless it took the transaction along.
bool keepTokens(QSqlQuery *query, qint64 id, const QString &content, Transaction *transaction,
                QString *error)
{
    query->bindValue(0, id);
    query->bindValue(1, content);
    return query->exec() || !transaction->isLost() || fail(error, *query);
}

} // namespace

Transaction::Transaction(const QSqlDatabase &database)
    : m_query(database)
{}

Transaction::~Transaction()
{
    rollback();
}

bool Transaction::begin(QString *error)
{
    m_active = m_query.exec(QStringLiteral("BEGIN"));
    return m_active || fail(error, m_query);
}

bool Transaction::commit(QString *error)
{
    if (!m_query.exec(QStringLiteral("COMMIT")))
        return fail(error, m_query);
    m_active = false;
    return true;
}

bool Transaction::isLost()
{
    if (!m_query.exec(QStringLiteral("BEGIN")))
        return false;
    rollback();
    return true;
}

void Transaction::rollback()
{
    if (m_active)
        m_query.exec(QStringLiteral("ROLLBACK"));
    m_active = false;
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

ContentUpdate::ContentUpdate(const QSqlDatabase &database)
    : m_select(database)
    , m_update(database)
    , m_deleteTokens(database)
    , m_insertTokens(database)
    , m_fresh(database)
    , m_grams(database)
{
    m_select.setForwardOnly(true);
}

bool ContentUpdate::prepare(QString *error)
{
    // Without a full text index the texts are kept all the same.
    m_grams.prepare();
    m_fresh.prepare(QStringLiteral("DELETE FROM stale_texts WHERE id = ?"));
    m_deleteTokens.prepare(QStringLiteral(
        "INSERT INTO content_fts(content_fts, rowid, content) VALUES('delete', ?, ?)"));
    m_insertTokens.prepare(QStringLiteral("INSERT INTO content_fts(rowid, content) VALUES(?, ?)"));
    if (!m_select.prepare(QStringLiteral("SELECT id, content FROM file_index WHERE path = ?")))
        return fail(error, m_select);
    return m_update.prepare(QStringLiteral("UPDATE file_index SET content = ? WHERE path = ?")) ||
           fail(error, m_update);
}

bool ContentUpdate::run(const QString &path, const QString &text, Transaction *transaction,
                        QString *error)
{
    // LIKE compares a text only up to its first NUL.
    const QString content = QString(text).replace(QChar(QChar::Null), QLatin1Char(' '));
    m_select.bindValue(0, path);
    if (!m_select.exec())
        return fail(error, m_select);
    qint64 id = -1;
    QString oldContent;
    if (m_select.next()) {
        id = m_select.value(0).toLongLong();
        oldContent = m_select.value(1).toString();
    }
    m_select.finish(); // no read cursor on the row while it changes
    if (id >= 0 && oldContent == content) {
        m_fresh.bindValue(0, id);
        m_fresh.exec(); // Where it stays stale, it is read once more.
    }
    if (id < 0 || oldContent == content)
        return true;

    if (!m_grams.remove(id, oldContent, transaction, error))
        return false;
    m_update.bindValue(0, content);
    m_update.bindValue(1, path);
    if (!m_update.exec())
        return fail(error, m_update);
    m_hasReplacedText = m_hasReplacedText || !oldContent.isEmpty();
    // The delete command must get exactly the text that was indexed.
    return (oldContent.isEmpty() ||
            keepTokens(&m_deleteTokens, id, oldContent, transaction, error)) &&
           (content.isEmpty() || keepTokens(&m_insertTokens, id, content, transaction, error)) &&
           m_grams.add(id, content, transaction, error);
}

// The trigger of the word index takes the words out; what the gram index has of a text, only who
// reads the text can tell.
bool removeRows(const QSqlDatabase &database, const QString &condition, const QStringList &values,
                Transaction *transaction, bool *removed, QString *error)
{
    grams::GramUpdate gramUpdate(database);
    gramUpdate.prepare();
    QSqlQuery query(database);
    query.setForwardOnly(true);
    if (!prepareBound(&query,
                      QStringLiteral("SELECT id, content FROM file_index WHERE content IS NOT NULL "
                                     "AND (%1)")
                          .arg(condition),
                      values, error))
        return false;
    if (!query.exec())
        return fail(error, query);
    while (query.next()) {
        const qint64 id = query.value(0).toLongLong();
        if (!gramUpdate.remove(id, query.value(1).toString(), transaction, error) ||
            !gramUpdate.forget(id, transaction, error))
            return false;
    }
    query.finish();
    if (!prepareBound(&query, QStringLiteral("DELETE FROM file_index WHERE ") + condition, values,
                      error))
        return false;
    if (!query.exec())
        return fail(error, query);
    *removed = query.numRowsAffected() > 0;
    return true;
}

} // namespace search
