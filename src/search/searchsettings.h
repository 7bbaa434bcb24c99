#pragma once

#include "core/controllers/search/searchpathresolver.h"

#include <QList>
#include <QString>
#include <QStringList>

/// What the file search keeps under `search` in its settings file. Directories are stored paths: in
/// livecd mode those of the target system.
struct SearchSettings
{
    QStringList roots;
    QStringList excludeDirs; ///< Names that match at any depth, or absolute paths.
    QStringList ftsExtensions;
    bool moreTextTypes = true;    ///< Mail, web pages, subtitles, logs and names in zip archives.
    int indexedTextBytes = 16384; ///< Kept of each document; see textLengths().
    bool autoRebuild = true;
    int inotifyMaxDepth = 5;           ///< 0 has no limit, below 0 nothing is watched.
    int incrementalIntervalHours = 24; ///< 0 never refreshes by itself.
};

/// The rules of those settings. Reading and writing touch one small file.
namespace searchsettings {

using Paths = core::controllers::search::SearchRuntimePaths;

/// Database of the context; a placeholder in the temporary folder while search is unavailable, so
/// that the workers always have a path.
QString activeDbPath(const Paths &paths);
/// Settings file of the mode: livecd keeps one of its own in the chosen home of the target system.
QString activeConfigPath(const Paths &paths);
/// Settings file of the user whose index this is, in either mode.
QString baseConfigPath(const Paths &paths);

SearchSettings defaults(const Paths &paths);
/// Reads the mode's file. Without roots there, the base file's lists take the places that the
/// mode's file left open; whether and how often the index follows changes stays with the mode.
SearchSettings load(const Paths &paths);
[[nodiscard]] bool save(const Paths &paths, const SearchSettings &settings,
                        QString *error = nullptr);

/// Document types come as a block: a list that holds one of them gets all of them. Entries come
/// back trimmed and in lower case.
QStringList withDocumentBlock(const QStringList &extensions);

/// All suffixes whose text is indexed: the list, and the further text types where they are on.
QStringList contentExtensions(const SearchSettings &settings);

/// What may be kept of a document, in bytes: 16 KB, 256 KB, or all of it up to 16 MB.
QList<int> textLengths();

/// Stored paths as this program can open them, and back. Plain names pass through.
QStringList runtimePaths(const Paths &paths, const QStringList &stored);
QStringList storedPaths(const Paths &paths, const QStringList &runtime);

/// Folders of the settings files and of the database.
QStringList internalSearchStateDirs(const Paths &paths);
/// The exclusions as runtime paths, and the folders that hold the search's own files: the index
/// never indexes itself.
QStringList effectiveExcludeDirs(const Paths &paths, const SearchSettings &settings);

/// True if a watcher may run: it stores absolute paths, so only where stored and runtime paths
/// agree.
bool watchesChanges(const Paths &paths, const SearchSettings &settings);
/// Milliseconds between two refreshes, 0 for never.
int incrementalIntervalMs(const SearchSettings &settings);

} // namespace searchsettings
