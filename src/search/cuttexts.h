#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QStringList>

namespace search {

/// Which documents of the index hold only the beginning of their text. Kept in a table of its own,
/// which an older index does not have. Used by the thread of its connection.
class CutTexts
{
public:
    explicit CutTexts(const QSqlDatabase &database)
        : m_database(database)
    {}

    /// Makes the table where it is missing.
    [[nodiscard]] bool prepare(QString *error = nullptr);
    /// Notes for rows that are there, by stored path, whether their text is cut.
    [[nodiscard]] bool set(const QStringList &paths, bool isCut, QString *error = nullptr);
    /// Rows whose text is cut; those of removed files do not count. 0 without the table.
    qint64 count() const;

private:
    bool run(const QString &statement, const QStringList &paths, QString *error);

    QSqlDatabase m_database;
};

} // namespace search
