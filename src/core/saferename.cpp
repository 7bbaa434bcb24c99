#include "core/saferename.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace core {

namespace {

/// ENOSYS where the file system knows no such rename.
int renameExclusively(const QByteArray &from, const QByteArray &to)
{
    if (::syscall(SYS_renameat2, AT_FDCWD, from.constData(), AT_FDCWD, to.constData(),
                  RENAME_NOREPLACE) == 0)
        return 0;
    return errno == EINVAL || errno == EOPNOTSUPP ? ENOSYS : errno;
}

int renameByLink(const QByteArray &from, const QByteArray &to)
{
    if (::link(from.constData(), to.constData()) != 0)
        return errno;
    if (::unlink(from.constData()) == 0)
        return 0;
    const int code = errno;
    ::unlink(to.constData());
    return code;
}

bool knowsNoLinks(int code)
{
    return code == EPERM || code == EOPNOTSUPP || code == ENOSYS || code == EMLINK;
}

} // namespace

int renameNoReplace(const QByteArray &from, const QByteArray &to)
{
    const int code = renameExclusively(from, to);
    return code == ENOSYS ? renameByLink(from, to) : code;
}

int renameToFree(const QByteArray &from, const QByteArray &to)
{
    const int exclusive = renameExclusively(from, to);
    if (exclusive != ENOSYS)
        return exclusive;
    const int code = renameByLink(from, to);
    return knowsNoLinks(code) ? renameByReservation(from, to) : code;
}

int renameByReservation(const QByteArray &from, const QByteArray &to)
{
    const int fd =
        ::open(to.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return errno;
    ::close(fd);
    if (std::rename(from.constData(), to.constData()) == 0)
        return 0;
    const int code = errno;
    ::unlink(to.constData());
    return code;
}

} // namespace core
