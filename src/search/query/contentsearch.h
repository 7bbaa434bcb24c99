#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QVariantList>

namespace search::query {

/// Documents that answer a search line and every refine keyword. A plain word gives what
/// queryByContent() gives; several words those that hold all of them, near each other first. What
/// is written in other characters (traditional, full width) follows. At most `limit` rows.
QVariantList searchContents(const QSqlDatabase &database, const QString &line, int limit,
                            const QString &refine, QString *error);

} // namespace search::query
