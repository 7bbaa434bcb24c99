#include "share/sqlstatement.h"

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
