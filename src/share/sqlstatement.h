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

/// One reading of rows. Over the connection that a worker's thread keeps, the statement is prepared
/// once and kept for the next reading; no two readings of one statement overlap on a thread.
class Reading
{
public:
    Reading(const QSqlDatabase &database, const QString &sql);
    ~Reading() { m_query->finish(); }
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;

    [[nodiscard]] bool run(const QVariantList &values, QString *error);
    bool next(QString *error) { return nextRow(m_query, error); }
    const QSqlQuery &row() const { return *m_query; }

private:
    QSqlQuery m_own;
    QSqlQuery *m_query; // the kept one or m_own
    const QString m_sql;
};

/// Never NULL, which a null string would be stored as.
QVariant text(const QString &value);
/// NULL for an empty string.
QVariant textOrNull(const QString &value);
/// NULL for 0 or less.
QVariant timeOrNull(qint64 ms);

} // namespace sqlstatement
