#include "support/rawdatabase.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QUuid>

namespace {

[[noreturn]] void giveUp(const QString &sql, const QSqlError &error)
{
    qFatal("%s: %s", qPrintable(sql), qPrintable(error.text()));
}

void bindAll(QSqlQuery *query, const QVariantList &values)
{
    for (int i = 0; i < values.size(); ++i)
        query->bindValue(i, values.at(i));
}

} // namespace

RawDatabase::RawDatabase(const QString &path)
    : m_name(QUuid::createUuid().toString())
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_name);
    database.setDatabaseName(path);
    if (!database.open())
        giveUp(path, database.lastError());
}

RawDatabase::~RawDatabase()
{
    connection().close();
    QSqlDatabase::removeDatabase(m_name);
}

QList<QVariantList> RawDatabase::rows(const QString &sql, const QVariantList &values)
{
    QSqlQuery query(connection());
    query.setForwardOnly(true);
    if (!query.prepare(sql))
        giveUp(sql, query.lastError());
    bindAll(&query, values);
    if (!query.exec())
        giveUp(sql, query.lastError());
    const int columns = query.record().count();
    QList<QVariantList> result;
    while (query.next()) {
        QVariantList row;
        for (int i = 0; i < columns; ++i)
            row.append(query.value(i));
        result.append(row);
    }
    return result;
}

QStringList RawDatabase::column(const QString &sql, const QVariantList &values)
{
    QStringList result;
    const QList<QVariantList> found = rows(sql, values);
    for (const QVariantList &row : found)
        result.append(row.value(0).toString());
    return result;
}

void RawDatabase::writeAll(const QString &sql, const QList<QVariantList> &batch)
{
    QSqlQuery query(connection());
    rows(QStringLiteral("BEGIN"));
    if (!query.prepare(sql))
        giveUp(sql, query.lastError());
    for (const QVariantList &values : batch) {
        bindAll(&query, values);
        if (!query.exec())
            giveUp(sql, query.lastError());
    }
    rows(QStringLiteral("COMMIT"));
}

QSqlDatabase RawDatabase::connection() const
{
    return QSqlDatabase::database(m_name, false);
}
