#pragma once

#include <QString>

namespace core {

/// True if `path` is `dir` itself or lies below it. Both are cleaned first, and `dir` is ended with
/// a separator before the comparison, so "/a/bc" is not inside "/a/b". An empty path or directory
/// is never inside. Textual only: symbolic links are not resolved.
bool isInside(const QString &path, const QString &dir);

/// True if the directory holds an installed system, rather than being an empty mount point: its
/// release file and a place for homes are there. Asks the disk.
bool holdsInstalledSystem(const QString &dir);

/// A path as a person or a setting gives it, cleaned. An absolute one is taken to the letter, since
/// blanks and line feeds at its end belong to the name; any other is trimmed first.
QString cleanedPath(const QString &path);

} // namespace core
