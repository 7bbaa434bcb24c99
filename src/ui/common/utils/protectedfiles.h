#pragma once

#include <QString>
#include <QVector>

class QJsonArray;

/// The files that the vault holds, as both of their pages show them.
namespace protectedfiles {

/// A deleted file that can be restored.
struct ProtectedFile
{
    QString id; ///< The handle for restoring and deleting; empty for a record without one.
    QString fileName;
    QString originalPath; ///< Full path that the file had when it was deleted.
    qint64 fileSize = 0;  ///< Bytes, never negative.
    qint64 deletedAt = 0; ///< Seconds since the epoch; below 1 is unknown.
};

/// The files that lay in one directory.
struct DirectoryGroup
{
    QString directory;
    QVector<ProtectedFile> files; ///< In the order in which they came.
    qint64 totalSize = 0;         ///< Bytes; stops at the type's limit.
};

/// Records as they come from a service or a vault. Keys that are missing or of another type read as
/// empty or 0; what is no object is left out.
QVector<ProtectedFile> fromJson(const QJsonArray &records);

/// What stands before the last "/" of a path; "/" where that is nothing.
QString directoryOf(const QString &originalPath);
/// Sorted by directory.
QVector<DirectoryGroup> groupByDirectory(const QVector<ProtectedFile> &files);

/// Text of a group: directory and number of files.
QString groupText(const DirectoryGroup &group);
/// "0 B", "512 B", "1.5 KB", "100.0 MB", "101 MB": 1024 to the unit, up to TB, one decimal up to
/// 100 of a unit and none above. Negative is "0 B".
QString byteText(qint64 bytes);
/// Local time "yyyy-MM-dd HH:mm" of seconds since the epoch; "-" below 1, and for what no calendar
/// holds.
QString deletedText(qint64 seconds);

} // namespace protectedfiles
