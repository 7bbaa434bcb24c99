#pragma once

#include <QString>

namespace share {

QString percentDecode(const QString &text);

/// Decodes what stands behind the session in a link and takes it apart at its first slash. False if
/// there is no root id.
[[nodiscard]] bool splitRootAndRelativePath(const QString &subPath, QString *rootId,
                                            QString *relativePath);

/// The one test of what belongs to a share, for lists, downloads, checks and uploads: the path of
/// an existing file or directory below `rootPath`, or empty when it is refused, which also holds
/// for what does not exist and for links that lead out. `relativePath` is percent-decoded here, for
/// the second time: the test sees what the system will. An empty one gives `rootPath` untested.
QString resolveSafePath(const QString &rootPath, const QString &relativePath);

/// A directory's path and a name, whatever the name begins with.
QString joinedPath(const QString &directory, const QString &name);

/// A single name that stays in its directory. Tests it as given: trim before.
bool isValidUploadFileName(const QString &name);

/// The content type by the suffix.
QString mimeTypeForFile(const QString &fileName);

/// "512 B", "1.5 KB", "2.0 MB", "3.25 GB".
QString formatFileSize(qint64 bytes);

} // namespace share
