#include "core/saferename.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace core {

namespace {

/// A name, relative to an open directory or AT_FDCWD.
struct Place
{
    int dir;
    const char *name;
};

Place place(const QByteArray &path)
{
    return {AT_FDCWD, path.constData()};
}

/// ENOSYS where the file system knows no such rename.
int renameExclusively(const Place &from, const Place &to)
{
    if (::syscall(SYS_renameat2, from.dir, from.name, to.dir, to.name, RENAME_NOREPLACE) == 0)
        return 0;
    return errno == EINVAL || errno == EOPNOTSUPP ? ENOSYS : errno;
}

int renameByLink(const Place &from, const Place &to)
{
    if (::linkat(from.dir, from.name, to.dir, to.name, 0) != 0)
        return errno;
    if (::unlinkat(from.dir, from.name, 0) == 0)
        return 0;
    const int code = errno;
    ::unlinkat(to.dir, to.name, 0);
    return code;
}

bool knowsNoLinks(int code)
{
    return code == EPERM || code == EOPNOTSUPP || code == ENOSYS || code == EMLINK;
}

int renameReserved(const Place &from, const Place &to)
{
    const int fd =
        ::openat(to.dir, to.name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return errno;
    ::close(fd);
    if (::renameat(from.dir, from.name, to.dir, to.name) == 0)
        return 0;
    const int code = errno;
    ::unlinkat(to.dir, to.name, 0);
    return code;
}

int renameToFreePlace(const Place &from, const Place &to)
{
    const int exclusive = renameExclusively(from, to);
    if (exclusive != ENOSYS)
        return exclusive;
    const int code = renameByLink(from, to);
    return knowsNoLinks(code) ? renameReserved(from, to) : code;
}

} // namespace

int renameNoReplace(const QByteArray &from, const QByteArray &to)
{
    const int code = renameExclusively(place(from), place(to));
    return code == ENOSYS ? renameByLink(place(from), place(to)) : code;
}

int renameToFree(const QByteArray &from, const QByteArray &to)
{
    return renameToFreePlace(place(from), place(to));
}

int renameToFreeAt(int fromDir, const QByteArray &from, int toDir, const QByteArray &to)
{
    return renameToFreePlace({fromDir, from.constData()}, {toDir, to.constData()});
}

int renameByReservation(const QByteArray &from, const QByteArray &to)
{
    return renameReserved(place(from), place(to));
}

} // namespace core
