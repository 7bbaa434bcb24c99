#include "support/indexsnapshot.h"

#include <QDateTime>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>

#include <functional>

namespace {

void withDatabase(const QString &dbPath, const std::function<void(QSqlDatabase &)> &use)
{
    const QString name = QUuid::createUuid().toString();
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(dbPath);
        if (!db.open())
            qFatal("cannot open %s", qPrintable(dbPath));
        use(db);
    }
    QSqlDatabase::removeDatabase(name);
}

void execute(QSqlQuery &query, const QString &statement)
{
    if (!query.exec(statement))
        qFatal("%s: %s", qPrintable(statement), qPrintable(query.lastError().text()));
}

} // namespace

IndexSnapshot readIndex(const QString &dbPath)
{
    IndexSnapshot rows;
    withDatabase(dbPath, [&rows](QSqlDatabase &db) {
        QSqlQuery query(db);
        execute(query, QStringLiteral("SELECT path,file_name,category,size,modified_ms,content "
                                      "FROM file_index"));
        while (query.next())
            rows.insert(query.value(0).toString(),
                        {query.value(1).toString(), query.value(2).toString(),
                         query.value(3).toLongLong(), query.value(4).toLongLong(),
                         query.value(5).toString()});
    });
    return rows;
}

IndexRow expectedRow(const QString &runtimePath, const QString &category, const QString &content)
{
    const QFileInfo info(runtimePath);
    return {info.fileName(), category, info.size(), info.lastModified().toMSecsSinceEpoch(),
            content};
}

void executeOn(const QString &dbPath, const QStringList &statements)
{
    withDatabase(dbPath, [&statements](QSqlDatabase &db) {
        QSqlQuery query(db);
        for (const QString &statement : statements)
            execute(query, statement);
    });
}
