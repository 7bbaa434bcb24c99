#pragma once

#include "search/newestfirstquery.h"

#include <QSqlDatabase>
#include <QString>

namespace search::grams {

/// Hands over the rows with a text that match a gram expression and pass a filter, newest first,
/// equal times by descending id, until the handler says to stop. An empty expression matches all.
/// The index must have its gram tables.
[[nodiscard]] bool newestCandidates(const QSqlDatabase &database, const QString &columns,
                                    const QString &expression, const RowFilter &filter,
                                    const NewestFirstQuery::RowHandler &handler, QString *error);

} // namespace search::grams
