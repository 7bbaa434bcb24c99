#pragma once

#include <QList>
#include <QSqlDatabase>
#include <QString>
#include <QVariantList>

/// A plain connection to an SQLite file, for what a test sets up or looks up behind the back of the
/// class under test. A statement that fails ends the program.
class RawDatabase
{
public:
    explicit RawDatabase(const QString &path);
    ~RawDatabase();

    RawDatabase(const RawDatabase &) = delete;
    RawDatabase &operator=(const RawDatabase &) = delete;

    /// All rows of one statement.
    QList<QVariantList> rows(const QString &sql, const QVariantList &values = QVariantList());
    /// The first column of each row, as text.
    QStringList column(const QString &sql, const QVariantList &values = QVariantList());
    /// Runs one prepared statement for every entry of `batch`, in one transaction.
    void writeAll(const QString &sql, const QList<QVariantList> &batch);

    QSqlDatabase connection() const;

private:
    QString m_name;
};
