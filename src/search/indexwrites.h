#pragma once

#include <QSqlQuery>
#include <QString>

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

/// The prepared statements that change the text of a row and its full text entry together.
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
    bool m_hasReplacedText = false;
};

} // namespace search
