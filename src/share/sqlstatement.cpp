#include "share/sqlstatement.h"

#include "share/threadconnection.h"

#include <QSqlDriver>
#include <QSqlError>

namespace sqlstatement {

bool fail(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return false;
}

QString notOpenText()
{
    return QStringLiteral("The share database is not open.");
}

bool run(QSqlQuery *query, const QString &sql, const QVariantList &values, QString *error)
{
    if (!query->driver() || !query->driver()->isOpen())
        return fail(error, notOpenText());
    query->setForwardOnly(true);
    if (!query->prepare(sql))
        return fail(error, query->lastError().text());
    for (const QVariant &value : values)
        query->addBindValue(value);
    return query->exec() || fail(error, query->lastError().text());
}

Reading::Reading(const QSqlDatabase &database, const QString &sql)
    : m_own(database)
    , m_query(ThreadConnection::statement(database, sql))
    , m_sql(sql)
{
    if (!m_query)
        m_query = &m_own;
}

bool Reading::run(const QVariantList &values, QString *error)
{
    if (m_query->lastQuery() != m_sql) {
        if (sqlstatement::run(m_query, m_sql, values, error))
            return true;
        // A statement that could not be prepared is not to be taken for one that was.
        *m_query = m_own;
        return false;
    }
    for (int i = 0; i < values.size(); ++i)
        m_query->bindValue(i, values.at(i));
    return m_query->exec() || fail(error, m_query->lastError().text());
}

bool write(const QSqlDatabase &database, const char *sql, const QVariantList &values,
           QString *error)
{
    QSqlQuery query(database);
    return run(&query, QLatin1String(sql), values, error);
}

bool nextRow(QSqlQuery *query, QString *error)
{
    if (query->next())
        return true;
    if (query->lastError().isValid())
        fail(error, query->lastError().text());
    return false;
}

QVariant text(const QString &value)
{
    return value.isNull() ? QVariant(QStringLiteral("")) : QVariant(value);
}

QVariant textOrNull(const QString &value)
{
    return value.isEmpty() ? QVariant(QVariant::String) : QVariant(value);
}

QVariant timeOrNull(qint64 ms)
{
    return ms > 0 ? QVariant(ms) : QVariant(QVariant::LongLong);
}

} // namespace sqlstatement
