#include "wechat/fileoperations.h"

#include "core/saferename.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace wechat {

namespace {

bool isUnsupported(int code)
{
    return code == EINVAL || code == ENOSYS || code == EOPNOTSUPP;
}

} // namespace

int FileOperations::open(const QByteArray &path, int flags, mode_t mode)
{
    return ::open(path.constData(), flags | O_CLOEXEC, mode);
}

ssize_t FileOperations::read(int fd, char *data, size_t length)
{
    return ::read(fd, data, length);
}

ssize_t FileOperations::write(int fd, const char *data, size_t length)
{
    return ::write(fd, data, length);
}

int FileOperations::allocate(int fd, off_t bytes)
{
    errno = ::posix_fallocate(fd, 0, bytes);
    return errno == 0 ? 0 : -1;
}

int FileOperations::fsync(int fd)
{
    return ::fsync(fd);
}

int FileOperations::syncfs(int fd)
{
    return ::syncfs(fd);
}

int FileOperations::stat(const QByteArray &path, struct stat *info)
{
    return ::stat(path.constData(), info);
}

int FileOperations::lstat(const QByteArray &path, struct stat *info)
{
    return ::lstat(path.constData(), info);
}

int FileOperations::link(const QByteArray &from, const QByteArray &to)
{
    return ::link(from.constData(), to.constData());
}

int FileOperations::unlink(const QByteArray &path)
{
    return ::unlink(path.constData());
}

int FileOperations::rename(const QByteArray &from, const QByteArray &to)
{
    return std::rename(from.constData(), to.constData());
}

int FileOperations::renameNoReplace(const QByteArray &from, const QByteArray &to)
{
    errno = core::renameNoReplace(from, to);
    return errno == 0 ? 0 : -1;
}

int FileOperations::exchange(const QByteArray &first, const QByteArray &second)
{
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, first.constData(), AT_FDCWD,
                                      second.constData(), RENAME_EXCHANGE));
}

QByteArray FileOperations::fullHash(const QString &path,
                                    const DuplicateScanner::StopFunction &shouldStop)
{
    return DuplicateScanner::fullHash(path, shouldStop);
}

bool FileIdentity::sameFile(const FileIdentity &other) const
{
    return isValid() && device == other.device && inode == other.inode;
}

bool FileIdentity::unchanged(const FileIdentity &other) const
{
    return sameFile(other) && regular && other.regular && size == other.size &&
           modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
}

FileIdentity identify(FileOperations &operations, const QString &path)
{
    struct stat info;
    if (operations.lstat(QFile::encodeName(path), &info) != 0)
        return FileIdentity();
    FileIdentity result;
    result.device = info.st_dev;
    result.inode = info.st_ino;
    result.size = info.st_size;
    result.modified = info.st_mtim;
    result.links = info.st_nlink;
    result.regular = S_ISREG(info.st_mode);
    return result;
}

bool sameFileSystem(FileOperations &operations, const QString &a, const QString &b)
{
    struct stat first;
    struct stat second;
    return operations.stat(QFile::encodeName(a), &first) == 0 &&
           operations.stat(QFile::encodeName(b), &second) == 0 && first.st_dev == second.st_dev;
}

bool isExpectedLink(FileOperations &operations, const QString &keepPath, const QString &path)
{
    struct stat first;
    struct stat second;
    return operations.stat(QFile::encodeName(keepPath), &first) == 0 &&
           operations.stat(QFile::encodeName(path), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool isGone(int code)
{
    return code == ENOENT || code == ENOTDIR || code == ELOOP;
}

bool isNoSpace(int code)
{
    return code == ENOSPC || code == EDQUOT;
}

QString withReason(const QString &message, int code)
{
    if (!isNoSpace(code))
        return message;
    return message + (code == ENOSPC ? QStringLiteral("（磁盘空间不足）")
                                     : QStringLiteral("（磁盘配额已用完）"));
}

bool writeAll(FileOperations &operations, int fd, const QByteArray &data)
{
    int done = 0;
    while (done < data.size()) {
        const ssize_t written =
            operations.write(fd, data.constData() + done, static_cast<size_t>(data.size() - done));
        if (written < 0 && errno == EINTR)
            continue;
        if (written == 0)
            errno = EIO;
        if (written <= 0)
            return false;
        done += static_cast<int>(written);
    }
    return true;
}

bool syncDirectory(FileOperations &operations, const QString &directory)
{
    const int fd = operations.open(QFile::encodeName(directory), O_RDONLY | O_DIRECTORY);
    if (fd < 0)
        return false;
    // Some network file systems refuse to flush a directory and flush by themselves.
    const bool ok = operations.fsync(fd) == 0 || isUnsupported(errno);
    const int code = errno;
    ::close(fd);
    errno = code;
    return ok;
}

bool flushFileSystem(FileOperations &operations, const QString &file)
{
    const int fd = operations.open(QFile::encodeName(file), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return false;
    const bool ok = operations.syncfs(fd) == 0;
    ::close(fd);
    return ok;
}

bool TouchedFileSystems::flush(FileOperations &operations) const
{
    bool ok = true;
    for (const QString &file : m_files)
        ok = flushFileSystem(operations, file) && ok;
    return ok;
}

Placement putInPlaceOf(FileOperations &operations, const QString &from, const QString &to,
                       const FileIdentity &link)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    const FileIdentity present = identify(operations, to);
    if (!present.isValid())
        return operations.renameNoReplace(source, target) == 0 ? Placement::Placed
                                                               : Placement::Refused;
    if (!present.sameFile(link)) {
        errno = EEXIST;
        return Placement::Refused;
    }
    if (operations.exchange(source, target) == 0) {
        if (identify(operations, from).sameFile(link))
            return operations.unlink(source) == 0 ? Placement::Placed : Placement::Leftover;
        // Another file took the name between the check and the swap: it gets the name back.
        const bool isBack = operations.exchange(source, target) == 0;
        errno = EEXIST;
        return isBack ? Placement::Refused : Placement::Leftover;
    }
    if (!isUnsupported(errno))
        return Placement::Refused;
    return operations.rename(source, target) == 0 ? Placement::Placed : Placement::Refused;
}

} // namespace wechat
