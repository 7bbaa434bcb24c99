#include "core/openbeneath.h"

#include "core/descriptor.h"

#include <QList>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace core {

namespace {

constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// With errno set.
int openPart(int dirFd, const char *part)
{
    const int fd = ::openat(dirFd, part, kFlags);
    if (fd >= 0 || errno != ENOTDIR)
        return fd;
    // Such an open takes a link for what it is: no directory.
    struct stat info;
    const bool isLink =
        ::fstatat(dirFd, part, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(info.st_mode);
    errno = isLink ? ELOOP : ENOTDIR;
    return -1;
}

} // namespace

int openDirectoryBeneath(int rootFd, const QByteArray &relative)
{
    Descriptor dir(openPart(rootFd, "."));
    if (relative.isEmpty())
        return dir.release();
    const QList<QByteArray> parts = relative.split('/');
    for (const QByteArray &part : parts) {
        if (!dir.isOpen())
            return -1;
        if (part.isEmpty() || part == "." || part == "..") {
            errno = EINVAL;
            return -1;
        }
        dir.reset(openPart(dir.get(), part.constData()));
    }
    return dir.release();
}

} // namespace core
