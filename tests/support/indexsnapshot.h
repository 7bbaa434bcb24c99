#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

/// The rows of an index database as they are at one moment, read over a connection of its own.
struct IndexRow
{
    QString name;
    QString category;
    qint64 size = 0;       ///< bytes
    qint64 modifiedMs = 0; ///< since the epoch
    QString content;       ///< null where there is none

    bool operator==(const IndexRow &other) const
    {
        return name == other.name && category == other.category && size == other.size &&
               modifiedMs == other.modifiedMs && content == other.content;
    }
};

/// By stored path. An unreadable database ends the test program.
using IndexSnapshot = QMap<QString, IndexRow>;

IndexSnapshot readIndex(const QString &dbPath);

/// The row that a file on disk should have.
IndexRow expectedRow(const QString &runtimePath, const QString &category,
                     const QString &content = QString());

/// Runs statements on the database, for instance a trigger that makes every write fail.
void executeOn(const QString &dbPath, const QStringList &statements);
