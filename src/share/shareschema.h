#pragma once

#include <QSqlDatabase>
#include <QString>

/// Makes the tables, and adds the columns that a file of an earlier release lacks. Stops at the
/// first failure with the database's text in `error`, which may be null.
[[nodiscard]] bool initShareSchema(const QSqlDatabase &database, QString *error);

/// Sees to it that nobody but the user can read the file, which holds hashes of passwords: makes it
/// and its folder if they are missing, and takes the rights of others away from an older file. What
/// does not work shows when the database is opened.
void prepareShareDbFile(const QString &path);
