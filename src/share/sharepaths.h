#pragma once

#include <QString>

namespace share {

QString percentDecode(const QString &text);

/// Decodes what stands behind the session in a link and takes it apart at its first slash. False if
/// there is no root id.
[[nodiscard]] bool splitRootAndRelativePath(const QString &subPath, QString *rootId,
                                            QString *relativePath);

/// Decodes the path below a root for the second time and cleans it. False for what nobody may ask
/// for: absolute paths, those with ".." in them, and NULs, at which the system would cut a path.
[[nodiscard]] bool cleanRelativePath(const QString &relativePath, QString *clean);

bool isHiddenName(const QString &name);
/// True if a clean path names something hidden or something inside of it.
bool hasHiddenPart(const QString &cleanPath);

/// A directory's path and a name, whatever the name begins with.
QString joinedPath(const QString &directory, const QString &name);

/// A single name that stays in its directory. Tests it as given: trim before.
bool isValidUploadFileName(const QString &name);

/// The content type by the suffix.
QString mimeTypeForFile(const QString &fileName);

/// "512 B", "1.5 KB", "2.0 MB", "3.25 GB".
QString formatFileSize(qint64 bytes);

} // namespace share
