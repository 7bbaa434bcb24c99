#include "core/posixfile.h"

#include "core/descriptor.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace core {

namespace {

constexpr int kChunk = 256 * 1024;

/// A call that a file system without it refuses in one of these ways did not fail.
bool isUnsupported(int code)
{
    return code == EINVAL || code == EOPNOTSUPP || code == ENOSYS || code == EROFS;
}

/// What is left after copy_file_range(2), or where it is not available.
int copyByHand(int from, int to, const std::atomic<bool> *stop)
{
    QByteArray buffer(kChunk, Qt::Uninitialized);
    for (;;) {
        if (stop && *stop)
            return ECANCELED;
        const ssize_t got = ::read(from, buffer.data(), size_t(buffer.size()));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got < 0 ? errno : 0;
        const int code = writeAll(to, buffer.constData(), got);
        if (code != 0)
            return code;
    }
}

} // namespace

int writeAll(int fd, const char *bytes, qint64 length)
{
    while (length > 0) {
        const ssize_t written = ::write(fd, bytes, size_t(length));
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return errno;
        bytes += written;
        length -= written;
    }
    return 0;
}

int writeAll(int fd, const QByteArray &bytes)
{
    return writeAll(fd, bytes.constData(), bytes.size());
}

int readAll(int fd, qint64 limit, QByteArray *bytes)
{
    bytes->clear();
    char chunk[16 * 1024];
    for (;;) {
        const ssize_t got = ::read(fd, chunk, sizeof(chunk));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got < 0 ? errno : 0;
        if (got > limit - bytes->size()) {
            bytes->clear();
            return EFBIG;
        }
        bytes->append(chunk, int(got));
    }
}

int readFile(const QByteArray &path, qint64 limit, QByteArray *bytes)
{
    // Without O_NONBLOCK a FIFO in the place of the file would block.
    const Descriptor file(::open(path.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file.isOpen())
        return errno;
    struct stat info = {};
    if (::fstat(file.get(), &info) != 0)
        return errno;
    return S_ISREG(info.st_mode) ? readAll(file.get(), limit, bytes) : EINVAL;
}

int readAt(int fd, qint64 offset, char *to, qint64 length)
{
    while (length > 0) {
        const ssize_t got = ::pread(fd, to, size_t(length), off_t(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got < 0 ? errno : ENODATA;
        to += got;
        offset += got;
        length -= got;
    }
    return 0;
}

int copyBytes(int from, int to, const std::atomic<bool> *stop)
{
    constexpr size_t kPiece = 16 * 1024 * 1024;
    for (;;) {
        if (stop && *stop)
            return ECANCELED;
        const ssize_t copied = ::copy_file_range(from, nullptr, to, nullptr, kPiece, 0);
        if (copied > 0 || (copied < 0 && errno == EINTR))
            continue;
        // Some file systems report an early end; reading on proves it.
        if (copied == 0 || errno == EXDEV || errno == EBADF || isUnsupported(errno))
            return copyByHand(from, to, stop);
        return errno;
    }
}

int syncFile(int fd)
{
    return ::fsync(fd) == 0 || isUnsupported(errno) ? 0 : errno;
}

int syncDirectory(const QByteArray &path)
{
    const Descriptor dir(::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return dir.isOpen() ? syncFile(dir.get()) : errno;
}

int replaceFile(const QByteArray &path, const QByteArray &bytes, mode_t mode)
{
    QByteArray temporary = path + ".XXXXXX";
    Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.isOpen())
        return errno;
    int code = ::fchmod(file.get(), mode) == 0 ? 0 : errno;
    if (code == 0)
        code = writeAll(file.get(), bytes);
    if (code == 0)
        code = syncFile(file.get());
    if (code == 0 && ::rename(temporary.constData(), path.constData()) != 0)
        code = errno;
    if (code != 0) {
        ::unlink(temporary.constData());
        return code;
    }
    return syncDirectory(parentPath(path));
}

QByteArray parentPath(const QByteArray &path)
{
    const int slash = path.lastIndexOf('/');
    if (slash < 0)
        return QByteArrayLiteral(".");
    return slash == 0 ? QByteArrayLiteral("/") : path.left(slash);
}

QString systemError(const QString &subject, int code)
{
    return QStringLiteral("%1：%2").arg(subject, QString::fromLocal8Bit(std::strerror(code)));
}

} // namespace core
