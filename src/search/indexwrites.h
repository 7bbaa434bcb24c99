#pragma once

#include "search/grams/gramindex.h"

#include <QSqlQuery>
#include <QString>
#include <QStringList>

class QFileInfo;
class QSqlDatabase;

namespace search {

/// One write transaction. What was not committed is rolled back at the latest by the destructor.
class Transaction
{
public:
    explicit Transaction(const QSqlDatabase &database);
    ~Transaction();

    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    [[nodiscard]] bool begin(QString *error);
    /// A failure puts the driver's text into `error`.
    [[nodiscard]] bool commit(QString *error);

    /// True if SQLite has ended the whole transaction by itself, as it does after some failures, a
    /// full disk among them. The statements that follow would then be committed one by one.
    bool isLost();

private:
    void rollback();

    QSqlQuery m_query;
    bool m_active = false;
};

/// The modification time that a row has for a file: milliseconds since the epoch.
qint64 modifiedMs(const QFileInfo &file);

/// The prepared statements that change the text of a row and its full text entries together.
class ContentUpdate
{
public:
    explicit ContentUpdate(const QSqlDatabase &database);

    [[nodiscard]] bool prepare(QString *error);
    /// Sets the text of the row of a stored path; NULs in it become blanks. Nothing is written if
    /// there is no such row or the text is equal.
    [[nodiscard]] bool run(const QString &path, const QString &text, Transaction *transaction,
                           QString *error);
    /// An earlier text has been replaced by any run() so far.
    bool hasReplacedText() const { return m_hasReplacedText; }

private:
    QSqlQuery m_select;
    QSqlQuery m_update;
    QSqlQuery m_deleteTokens;
    QSqlQuery m_insertTokens;
    QSqlQuery m_fresh;
    grams::GramUpdate m_grams;
    bool m_hasReplacedText = false;
};

/// Removes the rows of a condition with their full text entries, inside a transaction. `removed`
/// tells whether there were any.
[[nodiscard]] bool removeRows(const QSqlDatabase &database, const QString &condition,
                              const QStringList &values, Transaction *transaction, bool *removed,
                              QString *error);

} // namespace search
