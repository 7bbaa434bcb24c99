#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QVariantList>

#include <functional>

namespace search::query {

/// Documents that answer a search line and every refine keyword. A plain word gives what
/// queryByContent() gives, except that of very many documents only the latest in the index are
/// ranked; several words those that hold all of them, near each other first. What is written in
/// other characters (traditional, full width, with another blank between Han and Latin) follows. At
/// most `limit` rows. `cancelled` is asked now and then; what a cancelled search returns means
/// nothing.
QVariantList searchContents(const QSqlDatabase &database, const QString &line, int limit,
                            const QString &refine, const std::function<bool()> &cancelled,
                            QString *error);

} // namespace search::query
