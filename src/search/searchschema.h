#pragma once

#include <QSqlDatabase>
#include <QString>

namespace search {

/// Sets up a fresh connection: write-ahead log, so that searches read while a batch is written, and
/// syncing that is enough for an index that can be rebuilt. Failures are of no consequence.
void setConnectionPragmas(const QSqlDatabase &database);

/// Makes what is missing of tables, indexes and triggers, and removes what earlier versions had.
/// The first statement that fails ends it.
[[nodiscard]] bool createSchema(const QSqlDatabase &database, QString *error);

} // namespace search
