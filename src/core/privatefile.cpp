#include "core/privatefile.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace core {

namespace {

constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kForeignRights = 0077;

QByteArray parentOf(const QByteArray &path)
{
    const int slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArrayLiteral("/") : path.left(slash);
}

QByteArray absoluteBytes(const QString &path)
{
    return QFile::encodeName(QDir::cleanPath(QDir::current().absoluteFilePath(path)));
}

/// Only for what this process has made or owns as root. A second hard link would give away a file
/// of another place.
void giveToParentsOwner(const QByteArray &path, const struct stat &info)
{
    struct stat parent = {};
    const bool isOnlyName = S_ISDIR(info.st_mode) || info.st_nlink == 1;
    if (::geteuid() != 0 || info.st_uid != 0 || !isOnlyName ||
        ::stat(parentOf(path).constData(), &parent) != 0)
        return;
    if (parent.st_uid != info.st_uid || parent.st_gid != info.st_gid)
        (void)!::lchown(path.constData(), parent.st_uid, parent.st_gid);
}

bool makeDirectories(const QByteArray &path)
{
    struct stat info = {};
    if (::stat(path.constData(), &info) == 0)
        return S_ISDIR(info.st_mode);
    if (path == "/" || !makeDirectories(parentOf(path)))
        return false;
    if (::mkdir(path.constData(), kDirectoryMode) != 0)
        return errno == EEXIST && ::stat(path.constData(), &info) == 0 && S_ISDIR(info.st_mode);
    if (::lstat(path.constData(), &info) == 0)
        giveToParentsOwner(path, info);
    return true;
}

void restrictRegularFile(const QByteArray &path)
{
    struct stat info = {};
    if (::lstat(path.constData(), &info) != 0 || !S_ISREG(info.st_mode))
        return;
    if ((info.st_mode & kForeignRights) != 0)
        (void)!::chmod(path.constData(), kFileMode);
    giveToParentsOwner(path, info);
}

} // namespace

bool makePrivateDirectory(const QString &path)
{
    if (path.isEmpty())
        return false;
    const QByteArray bytes = absoluteBytes(path);
    if (!makeDirectories(bytes))
        return false;
    struct stat info = {};
    if (::stat(bytes.constData(), &info) == 0 && (info.st_mode & kForeignRights) != 0 &&
        (info.st_mode & S_ISVTX) == 0)
        (void)!::chmod(bytes.constData(), info.st_mode & ~kForeignRights & 07777);
    return true;
}

void makePrivateFile(const QString &path)
{
    if (path.isEmpty())
        return;
    const QByteArray bytes = absoluteBytes(path);
    (void)!::mknod(bytes.constData(), S_IFREG | kFileMode, 0);
    restrictRegularFile(bytes);
}

void restrictFile(const QString &path)
{
    if (!path.isEmpty())
        restrictRegularFile(absoluteBytes(path));
}

} // namespace core
