#pragma once

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QVariantList>

/// Single statements of the share database. All fill `error`, which may be null, with the
/// database's text when they fail.
namespace sqlstatement {

/// Sets `error` and gives false.
bool fail(QString *error, const QString &text);
/// The error of everything on a database that is not open. Qt's own text names no cause, and Qt
/// writes another to the log each time.
QString notOpenText();
/// Prepares the statement, binds the values in order and runs it.
[[nodiscard]] bool run(QSqlQuery *query, const QString &sql, const QVariantList &values,
                       QString *error);
/// As run(), for a statement without rows.
[[nodiscard]] bool write(const QSqlDatabase &database, const char *sql, const QVariantList &values,
                         QString *error);
/// False behind the last row, and with an error when a row cannot be read.
bool nextRow(QSqlQuery *query, QString *error);

/// Never NULL, which a null string would be stored as.
QVariant text(const QString &value);
/// NULL for an empty string.
QVariant textOrNull(const QString &value);
/// NULL for 0 or less.
QVariant timeOrNull(qint64 ms);

} // namespace sqlstatement
