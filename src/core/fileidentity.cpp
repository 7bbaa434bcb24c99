#include "core/fileidentity.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

namespace core {

namespace {

constexpr quint64 kNsPerSecond = 1000000000;
constexpr quint32 kExfatMagic = 0x2011BAB0;

bool hasInodeNumbers(int fd)
{
    struct statfs info;
    if (::fstatfs(fd, &info) != 0)
        return true;
    const quint32 type = quint32(info.f_type);
    return type != MSDOS_SUPER_MAGIC && type != kExfatMagic;
}

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

bool isStillUnchanged(const FileIdentity &before, const FileIdentity &now, int fd)
{
    if (before.isUnchanged(now))
        return true;
    return before.isValid() && now.isValid() && before.device == now.device &&
           before.isSameState(now) && !hasInodeNumbers(fd);
}

} // namespace core
