#pragma once

#include <QSqlQuery>
#include <QString>
#include <QStringList>

#include <atomic>
#include <vector>

class PathExclusion;
class QFileInfo;
class QSqlDatabase;
class SearchIndexDB;

namespace search {

/// How texts are read: what differs in it makes other texts of the same files.
QString textSettings(int maxContentBytes);

/// The rows of files directly in a directory that are not there any more.
QStringList goneFilesOf(const QSqlDatabase &database, const QString &dir);

/// What an index knows of files before a build looks at them, so that a refresh writes and reads
/// only what has changed.
class KnownFiles
{
public:
    explicit KnownFiles(const QSqlDatabase &database);

    /// `textSettings` says how texts are read; a text that was read in another way is read anew.
    void open(const QString &textSettings);
    /// False for an index without files: nothing can be unchanged or gone.
    bool hasFiles() const { return m_hasFiles; }

    struct Known
    {
        bool isUnchanged = false; ///< Size and time are those of the row.
        bool hasText = false;     ///< And so is the text, which need not be read.
    };
    Known lookUp(const QString &storedPath, const QFileInfo &file);

    /// All texts are now read by the settings given to open().
    void noteTextSettings();

private:
    QSqlQuery m_query;
    QString m_textSettings;
    bool m_hasFiles = false;
    bool m_textsAreCurrent = false;
};

/// The paths that a walk has met, at eight bytes each.
class MetPaths
{
public:
    void add(const QString &path);
    /// After the last add(). True for a path that was not added only by a rare chance.
    bool contains(const QString &path);

private:
    std::vector<size_t> m_hashes;
    bool m_isSorted = false;
};

/// Removes the rows below `roots` whose files are gone, or are excluded by now. Roots are runtime
/// paths; one that is missing or empty keeps its rows, since its disk may just not be there.
/// `storedPrefix` stands before stored paths at run time. Ends early, with success, when stopped.
[[nodiscard]] bool pruneGoneFiles(SearchIndexDB *index, const QStringList &roots,
                                  const QString &storedPrefix, const PathExclusion &exclusion,
                                  MetPaths *met, const std::atomic_bool &stop, QString *error);

} // namespace search
