#pragma once

#include <QFileInfo>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

class QSqlDatabase;

/// The one class that touches the index file: a row per indexed file, its text, and an
/// external-content FTS5 table over that text.
///
/// An instance belongs to one thread: make it there, use it, destroy it. Several instances may have
/// the same file open. Every operation but the constructor, close() and databasePath() opens the
/// connection on demand. A failure leaves the index as it was before the call and puts the
/// driver's text into `error`.
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
    /// Removes a directory's row and all rows below it.
    [[nodiscard]] bool removeByPathPrefix(const QString &path, QString *error = nullptr);
    /// Checkpoints the log and compacts the file.
    [[nodiscard]] bool vacuum(QString *error = nullptr);

    /// "fileCount", "ftsCount" and "lastUpdatedMs" (time of the file itself); 0 where unknown.
    QVariantMap indexStats(QString *error = nullptr);

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
    QSqlDatabase connection() const;

    QString m_dbFilePath;
    QString m_connectionName;
};
