#include "wechat/pathprobe.h"

#include "core/pathutil.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <cerrno>

namespace wechat {

namespace {

/// Another file system begins here. False for what cannot be read.
bool isMountPoint(FileOperations &operations, const QString &directory)
{
    struct stat here;
    struct stat above;
    return operations.stat(QFile::encodeName(directory), &here) == 0 &&
           operations.stat(QFile::encodeName(QFileInfo(directory).path()), &above) == 0 &&
           here.st_dev != above.st_dev;
}

} // namespace

QStringList mountPointsOf(FileOperations &operations, const QStringList &paths)
{
    QHash<QString, QString> known; // Mount point by directory; empty for "/".
    QStringList result;
    for (const QString &path : paths) {
        QStringList climbed;
        QString mountPoint;
        QString directory = QFileInfo(path).path();
        while (directory.size() > 1 && directory.startsWith(QLatin1Char('/'))) {
            const auto found = known.constFind(directory);
            if (found != known.constEnd()) {
                mountPoint = found.value();
                break;
            }
            climbed.append(directory);
            if (isMountPoint(operations, directory)) {
                mountPoint = directory;
                break;
            }
            directory = QFileInfo(directory).path();
        }
        for (const QString &below : qAsConst(climbed))
            known.insert(below, mountPoint);
        if (!mountPoint.isEmpty() && !result.contains(mountPoint))
            result.append(mountPoint);
    }
    result.sort();
    return result;
}

PathProbe::PathProbe(FileOperations &operations, const QStringList &mountPoints)
    : m_operations(operations)
    , m_mountPoints(mountPoints)
{}

Presence PathProbe::presence(const QString &path, FileIdentity *identity) const
{
    const FileIdentity found = identify(m_operations, path);
    const int code = errno;
    if (identity)
        *identity = found;
    if (found.isValid())
        return Presence::Present;
    struct stat folder;
    const bool isAbsent =
        code == ENOENT &&
        m_operations.stat(QFile::encodeName(QFileInfo(path).path()), &folder) == 0 &&
        S_ISDIR(folder.st_mode) && !isOnMissingMount(path);
    return isAbsent ? Presence::Absent : Presence::Unknown;
}

bool PathProbe::isOnMissingMount(const QString &path) const
{
    for (const QString &mountPoint : m_mountPoints) {
        if (core::isInside(path, mountPoint) && !isMountPoint(m_operations, mountPoint))
            return true;
    }
    return false;
}

} // namespace wechat
