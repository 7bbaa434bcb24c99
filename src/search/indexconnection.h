#pragma once

#include <QString>

class QSqlDatabase;

namespace search {

/// How a connection may be used. An index on a medium that is mounted read-only can be searched.
enum class IndexAccess { ReadWrite, ReadOnly };

/// Adds and opens a connection to an index file. A missing file is made, readable by its owner
/// only; log files that SQLite adds to it get its owner and mode. On failure no connection is left
/// and `error` holds the driver's text.
[[nodiscard]] bool openIndexConnection(const QString &dbPath, const QString &connectionName,
                                       IndexAccess *access, QString *error);

/// Erases what removed texts have left: the log is written to the file and emptied. Entries of the
/// full text index that are only marked as removed are erased as well, unless that would mean to
/// rewrite a large index; compactIndex() does it then. Never waits. False while another connection
/// still reads the log.
[[nodiscard]] bool eraseRemovedText(const QSqlDatabase &database);

/// Checkpoints the log and compacts the file, which leaves nothing of what was removed. A
/// checkpoint that readers hold up sets `error`, but only a failed compaction is a failure.
[[nodiscard]] bool compactIndex(const QSqlDatabase &database, QString *error);

/// The same, but a file with less than a tenth of free pages keeps its size.
[[nodiscard]] bool tidyIndex(const QSqlDatabase &database, QString *error);

} // namespace search
