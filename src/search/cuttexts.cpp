#include "search/cuttexts.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace search {

bool CutTexts::prepare(QString *error)
{
    QSqlQuery query(m_database);
    if (query.exec(QStringLiteral("CREATE TABLE IF NOT EXISTS cut_texts(id INTEGER PRIMARY KEY)")))
        return true;
    if (error)
        *error = query.lastError().text();
    return false;
}

bool CutTexts::set(const QStringList &paths, bool isCut, QString *error)
{
    return run(isCut ? QStringLiteral("INSERT OR IGNORE INTO cut_texts "
                                      "SELECT id FROM file_index WHERE path = ?")
                     : QStringLiteral("DELETE FROM cut_texts WHERE id = "
                                      "(SELECT id FROM file_index WHERE path = ?)"),
               paths, error);
}

bool CutTexts::run(const QString &statement, const QStringList &paths, QString *error)
{
    // One change of the log for all of them; in a transaction of the caller this does nothing.
    const bool ownTransaction = m_database.transaction();
    QSqlQuery query(m_database);
    bool ok = query.prepare(statement);
    for (const QString &path : paths) {
        if (!ok)
            break;
        query.bindValue(0, path);
        ok = query.exec();
    }
    if (!ok && error)
        *error = query.lastError().text();
    query.finish();
    if (ownTransaction && !(ok ? m_database.commit() : m_database.rollback()))
        return false;
    return ok;
}

qint64 CutTexts::count() const
{
    QSqlQuery query(m_database);
    const bool ok = query.exec(QStringLiteral(
        "SELECT count(*) FROM cut_texts CROSS JOIN file_index ON file_index.id = cut_texts.id"));
    return ok && query.next() ? query.value(0).toLongLong() : 0;
}

} // namespace search
