#pragma once

#include <QSqlDatabase>
#include <QString>

/// Makes the tables, and adds the columns that a file of an earlier release lacks. Stops at the
/// first failure with the database's text in `error`, which may be null.
[[nodiscard]] bool initShareSchema(const QSqlDatabase &database, QString *error);

/// Makes the file and its folder readable by the user only: it holds hashes of passwords, paths and
/// addresses of visitors. Creates what is missing, and takes the rights of others away from what an
/// earlier release left. A failure shows when the database is opened.
void prepareShareDbFile(const QString &path);
