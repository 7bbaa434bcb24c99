#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QVariantList>

namespace search {

/// The two queries of the index, over an open connection of the calling thread. Arguments and
/// results are those of SearchIndexDB; a failed statement fills `error` and keeps what there is.
QVariantList queryByName(const QSqlDatabase &database, const QString &keyword, int limit,
                         const QString &refine, QString *error);
QVariantList queryByContent(const QSqlDatabase &database, const QString &keyword, int limit,
                            const QString &refine, QString *error);

} // namespace search
