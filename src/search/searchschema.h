#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QStringList>

namespace search {

/// Sets up a fresh connection: write-ahead log, so that searches read while a batch is written, and
/// syncing that is enough for an index that can be rebuilt; what is removed is overwritten.
/// Failures are of no consequence.
void setConnectionPragmas(const QSqlDatabase &database);

/// The names of the full text indexes, of words and of grams.
QStringList fullTextTables();

/// True if the full text indexes erase the entries of a removed text together with it. Otherwise
/// they only mark them, and they stay until their parts are merged.
bool erasesTokensAtOnce(const QSqlDatabase &database);

/// Makes what is missing of tables, indexes and triggers, and removes what earlier versions had.
/// The first statement that fails ends it.
[[nodiscard]] bool createSchema(const QSqlDatabase &database, QString *error);

/// False if there is no index in a file that cannot be written.
[[nodiscard]] bool checkSchema(const QSqlDatabase &database, QString *error);

} // namespace search
