#pragma once

#include "core/appmode.h"

#include <QString>
#include <QStringList>

namespace core {
namespace controllers {
namespace search {

/// Where settings, database and roots of the file search lie in this run.
struct SearchRuntimePaths
{
    core::AppMode mode = core::AppMode::normal;
    QString targetRoot = QStringLiteral("/live_target");
    bool targetMounted = false;
    bool searchStateFound = false;
    QString configPath;
    QString databasePath;
    QStringList defaultRoots;
    QStringList userHomes;
    QString primaryHome;
    QString errorMessage; ///< Why search is not available, in the user's words.
};

/// Finds the search context of a run mode, and converts between the path that a file has in the
/// target system (stored in the database) and the path at which this program can open it.
class SearchPathResolver
{
public:
    static SearchRuntimePaths resolve(core::AppMode mode);
    /// The same for another home and target root; tests and the guided tour use it.
    static SearchRuntimePaths resolve(core::AppMode mode, const QString &home,
                                      const QString &targetRoot);

    static bool isAvailable(const SearchRuntimePaths &paths);
    static QString toRuntimePath(const SearchRuntimePaths &paths, const QString &path);
    static QString toStoredPath(const SearchRuntimePaths &paths, const QString &path);

    /// `path`, cleaned as by cleanedPath(), as seen from `root`: "/" for the root itself, the rest
    /// for a path below it, unchanged elsewhere or when `root` is empty. `root` must be clean.
    static QString pathBelowRoot(const QString &path, const QString &root);
};

} // namespace search
} // namespace controllers
} // namespace core
