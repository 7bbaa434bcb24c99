#pragma once

#include "search/indexconnection.h"

#include <QFileInfo>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

class QSqlDatabase;

namespace search {
class Transaction;
} // namespace search

/// The one class that touches the index file: a row per indexed file, its text, and an
/// external-content FTS5 table over that text.
///
/// An instance belongs to one thread: make it there, use it, destroy it. Several instances may have
/// the same file open. Every operation but the constructor, close() and databasePath() opens the
/// connection on demand. A failure leaves the index as it was before the call and puts the
/// driver's text into `error`, or commitFailed().
///
/// The file is readable by its owner only. Texts that are removed or replaced leave no bytes in it
/// or in its log. On a medium that is mounted read-only the index can be searched, as far as it was
/// written back from its log.
///
/// A result of a query is a map with "path" (stored path), "name", "size" (bytes), "modifiedMs"
/// (since the epoch), "category", "snippet" (`<b>` marks), "score" (double) and, for a content
/// search with refine keywords, "refineSnippet".
class SearchIndexDB
{
public:
    /// An empty path means the default below the user's home.
    explicit SearchIndexDB(const QString &dbPath = QString());
    ~SearchIndexDB();

    SearchIndexDB(const SearchIndexDB &) = delete;
    SearchIndexDB &operator=(const SearchIndexDB &) = delete;

    /// Opens the file and makes sure of the schema.
    [[nodiscard]] bool open(QString *error = nullptr);
    /// Closes and removes the connection; safe when not open.
    void close();
    QString databasePath() const { return m_dbFilePath; }
    /// The open connection, for queries of other classes on the same thread.
    QSqlDatabase connection() const;

    /// The error of a call whose changes could not be committed; commitError() has the driver's
    /// text for the last of them.
    static QString commitFailed() { return QStringLiteral("commit failed"); }
    QString commitError() const { return m_commitError; }

    /// Erases removed text only in eraseRemovedText(), vacuum() and close(): each erasing waits for
    /// the disk, which many single changes should share.
    void deferErasing() { m_erasesAtOnce = false; }
    /// False while something is left to erase because another connection reads it. Never waits for
    /// a lock.
    bool eraseRemovedText();

    /// Writes the rows of `files` in one transaction and leaves their text alone. `storedPaths[i]`,
    /// where present and not empty, is the path to store for `files[i]`.
    [[nodiscard]] bool upsertFileInfoBatch(const QList<QFileInfo> &files,
                                           const QStringList &storedPaths,
                                           QString *error = nullptr);
    [[nodiscard]] bool upsertFileInfoBatch(const QList<QFileInfo> &files, QString *error = nullptr);
    /// Sets the text of existing rows, keyed by stored path, in one transaction.
    [[nodiscard]] bool updateFileContentBatch(const QMap<QString, QString> &contentByPath,
                                              QString *error = nullptr);
    /// One file and, when not empty, its text: a file that yields no text keeps its earlier one.
    [[nodiscard]] bool upsertFile(const QFileInfo &file, const QString &content,
                                  QString *error = nullptr);
    [[nodiscard]] bool removeFile(const QString &path, QString *error = nullptr);
    /// At most some hundreds, in one transaction.
    [[nodiscard]] bool removeFiles(const QStringList &paths, QString *error = nullptr);
    /// Removes the row of a path and all rows below it. `%` and `_` in the path match anything, as
    /// LIKE has it, and ASCII letters match in either case: see removeDirectory().
    [[nodiscard]] bool removeByPathPrefix(const QString &path, QString *error = nullptr);
    /// Removes a directory's row and all rows below it, and no others.
    [[nodiscard]] bool removeDirectory(const QString &path, QString *error = nullptr);
    /// Checkpoints the log and compacts the file.
    [[nodiscard]] bool vacuum(QString *error = nullptr);
    /// What is worth its cost of vacuum(): the file is compacted where a tenth of it is free.
    [[nodiscard]] bool tidyUp(QString *error = nullptr);
    /// Takes up to `most` texts into the gram index that are not in it, as those of an index made
    /// by an earlier version. `left` tells whether more wait.
    [[nodiscard]] bool addMissingGrams(int most, bool *left, QString *error = nullptr);

    /// "fileCount", "ftsCount" and "lastUpdatedMs" (time of the file itself); 0 where unknown.
    QVariantMap indexStats(QString *error = nullptr);
    /// Notes whether the texts of rows that are there are only the beginnings of their documents.
    [[nodiscard]] bool noteCutTexts(const QStringList &paths, bool areCut,
                                    QString *error = nullptr);
    /// Documents of which only the beginning is indexed.
    qint64 cutTextCount();

    /// Files whose name or path holds `keyword` and every refine keyword, newest first, at most
    /// `limit`. `refine` is a list joined by line feeds, commas or semicolons.
    QVariantList queryByName(const QString &keyword, int limit, const QString &refine,
                             QString *error = nullptr);
    /// Files whose text holds `keyword`: full text hits by rank, then substring hits, newest first.
    QVariantList queryByContent(const QString &keyword, int limit, const QString &refine,
                                QString *error = nullptr);
    QVariantList searchByName(const QString &keyword, int limit, const QString &refine,
                              QString *error = nullptr);
    QVariantList searchByContent(const QString &keyword, int limit, const QString &refine,
                                 QString *error = nullptr);

private:
    bool initSchema(QString *error);
    bool commit(search::Transaction *transaction, QString *error);
    void noteRemovedText();
    bool removeWhere(const QString &condition, const QStringList &values, QString *error);

    QString m_dbFilePath;
    QString m_connectionName;
    QString m_commitError;
    search::IndexAccess m_access = search::IndexAccess::ReadWrite;
    bool m_erasesAtOnce = true;
    bool m_textIsRemoved = false;
};
