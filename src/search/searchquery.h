#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

class QSqlQuery;

namespace search {

/// The columns of a result, to be the first ones of a statement, and the map of its current row.
QString fileColumns();
QVariantMap resultOfRow(const QSqlQuery &query);

/// The two queries of the index, over an open connection of the calling thread. Arguments and
/// results are those of SearchIndexDB; a failed statement fills `error` and keeps what there is.
QVariantList queryByName(const QSqlDatabase &database, const QString &keyword, int limit,
                         const QString &refine, QString *error);
QVariantList queryByContent(const QSqlDatabase &database, const QString &keyword, int limit,
                            const QString &refine, QString *error);

} // namespace search
