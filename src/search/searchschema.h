#pragma once

#include <QSqlDatabase>
#include <QString>

namespace search {

/// Sets up a fresh connection: write-ahead log, so that searches read while a batch is written, and
/// syncing that is enough for an index that can be rebuilt; what is removed is overwritten.
/// Failures are of no consequence.
void setConnectionPragmas(const QSqlDatabase &database);

/// True if the full text index erases the entries of a removed text together with it. Otherwise it
/// only marks them, and they stay until its parts are merged.
bool erasesTokensAtOnce(const QSqlDatabase &database);

/// Makes what is missing of tables, indexes and triggers, and removes what earlier versions had.
/// The first statement that fails ends it.
[[nodiscard]] bool createSchema(const QSqlDatabase &database, QString *error);

/// False if there is no index in a file that cannot be written.
[[nodiscard]] bool checkSchema(const QSqlDatabase &database, QString *error);

} // namespace search
