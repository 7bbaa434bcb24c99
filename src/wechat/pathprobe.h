#pragma once

#include "wechat/fileoperations.h"

#include <QString>
#include <QStringList>

namespace wechat {

/// What is known about a name. Work is settled, and a file gone, only where it is Absent.
enum class Presence {
    Present,
    Absent,  ///< Its folder is there, and the file system says that the name is not.
    Unknown, ///< The disk is not mounted or does not answer.
};

/// The innermost mount point above each of the paths, without "/", each once. Kept in journals and
/// records, since an empty mount point looks like a folder whose files have been deleted.
QStringList mountPointsOf(FileOperations &operations, const QStringList &paths);

/// Tells names that are gone from names that cannot be seen now. Any thread.
class PathProbe
{
public:
    /// `mountPoints`: as mountPointsOf() gave them while the paths were there.
    explicit PathProbe(FileOperations &operations, const QStringList &mountPoints = QStringList());

    /// `identity` is valid only for Present; may be null. Links are not followed.
    Presence presence(const QString &path, FileIdentity *identity = nullptr) const;

private:
    bool isOnMissingMount(const QString &path) const;

    FileOperations &m_operations;
    QStringList m_mountPoints;
};

} // namespace wechat
