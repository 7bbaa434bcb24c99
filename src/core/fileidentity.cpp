#include "core/fileidentity.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace core {

namespace {

constexpr quint64 kNsPerSecond = 1000000000;

} // namespace

FileIdentity identityOf(const struct stat &info)
{
    FileIdentity identity;
    if (!S_ISREG(info.st_mode))
        return identity;
    identity.device = quint64(info.st_dev);
    identity.inode = quint64(info.st_ino);
    identity.size = qint64(info.st_size);
    // Unsigned: a file may carry any time at all, and only equality counts.
    identity.modifiedNs =
        quint64(info.st_mtim.tv_sec) * kNsPerSecond + quint64(info.st_mtim.tv_nsec);
    return identity;
}

FileIdentity identityAt(int dirFd, const char *name)
{
    struct stat info;
    if (::fstatat(dirFd, name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return FileIdentity();
    errno = 0;
    return identityOf(info);
}

} // namespace core
