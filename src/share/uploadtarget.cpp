#include "share/uploadtarget.h"

#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace share {

namespace {

constexpr qint64 kReserve = 64 * 1024 * 1024;
constexpr qint64 kMsPerSecond = 1000;
constexpr mode_t kAccessBits = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr qint64 kNsPerMs = 1000000;

UploadTarget::Kind kindOf(mode_t mode)
{
    if (S_ISDIR(mode))
        return UploadTarget::Kind::Directory;
    return S_ISREG(mode) ? UploadTarget::Kind::File : UploadTarget::Kind::Special;
}

} // namespace

UploadTarget uploadTargetAt(int directory, const QByteArray &name)
{
    UploadTarget target;
    struct stat status;
    if (::fstatat(directory, name.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return target;
    target.isLink = S_ISLNK(status.st_mode);
    if (target.isLink && ::fstatat(directory, name.constData(), &status, 0) != 0)
        return target;
    target.kind = kindOf(status.st_mode);
    target.size = status.st_size;
    target.modifiedMs = status.st_mtim.tv_sec * kMsPerSecond + status.st_mtim.tv_nsec / kNsPerMs;
    target.accessMode = status.st_mode & kAccessBits;
    target.isWritable = ::faccessat(directory, name.constData(), W_OK, AT_EACCESS) == 0;
    return target;
}

bool hasRoomFor(int directory, qint64 bytes)
{
    struct statvfs storage;
    if (::fstatvfs(directory, &storage) != 0)
        return true;
    const auto available = static_cast<quint64>(storage.f_bavail) * storage.f_frsize;
    const quint64 most = std::numeric_limits<qint64>::max();
    return fitsInto(static_cast<qint64>(qMin(available, most)), bytes);
}

bool fitsInto(qint64 available, qint64 bytes)
{
    // Not the sum of the two, which a claimed length could overflow.
    return available >= kReserve && bytes <= available - kReserve;
}

} // namespace share
