#pragma once

#include <QSqlQuery>
#include <QString>
#include <QStringList>

class QSqlDatabase;

namespace search {
class Transaction;
}

namespace search::grams {

/// The second full text index, over grams, beside that of words: finds any part of a text, which
/// words cannot where they are not parted by blanks. It holds rowids only. Rows whose text has
/// changed in another way than through GramUpdate stand in text_without_grams, kept by triggers:
/// for these the text itself is compared, so the answers are complete at any time.
///
/// Makes the tables and, for rows that have a text already, the list of what is to be done; and
/// stale_texts, the rows whose file has changed since their text was read.
[[nodiscard]] bool createGramTables(const QSqlDatabase &database, QString *error);

/// True if the index has the tables and only few rows are not in them yet.
bool canSearchGrams(const QSqlDatabase &database);

/// "column IN (...)" for the rows that match a gram expression, which is to be bound, and those
/// that are not in the gram index yet.
QString candidateCondition(const QString &column);

/// True if more than `most` rows match.
bool hasMoreCandidates(const QSqlDatabase &database, const QString &expression, int most);

/// Takes up to `most` rows of text_without_grams into the index, in one transaction. `left` tells
/// whether more of them wait.
[[nodiscard]] bool addMissingGrams(const QSqlDatabase &database, int most, bool *left,
                                   QString *error);

/// The statements that keep the grams of a row in step with its text, inside the transaction that
/// changes the text. Does nothing on an index without the tables.
class GramUpdate
{
public:
    explicit GramUpdate(const QSqlDatabase &database);

    void prepare();
    /// Before the text of a row changes, or the row goes.
    [[nodiscard]] bool remove(qint64 id, const QString &oldText, Transaction *transaction,
                              QString *error);
    /// After the text of a row has changed.
    [[nodiscard]] bool add(qint64 id, const QString &text, Transaction *transaction,
                           QString *error);
    /// Before the row goes.
    [[nodiscard]] bool forget(qint64 id, Transaction *transaction, QString *error);

private:
    bool isKnown(qint64 id);
    bool run(QSqlQuery *query, Transaction *transaction, QString *error);

    bool m_hasTables = false;
    QSqlQuery m_find;
    QSqlQuery m_delete;
    QSqlQuery m_insert;
    QSqlQuery m_done;
};

} // namespace search::grams
