#pragma once

#include <QString>

namespace core {

/// True if `path` is `dir` itself or lies below it. Both are cleaned first, and `dir` is ended with
/// a separator before the comparison, so "/a/bc" is not inside "/a/b". An empty path or directory
/// is never inside. Textual only: symbolic links are not resolved.
bool isInside(const QString &path, const QString &dir);

} // namespace core
