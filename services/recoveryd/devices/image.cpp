#include "recoveryd/devices/image.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace services {
namespace recoveryd {

namespace {

// What a single structure (a directory, a bitmap) may take in memory.
constexpr qint64 kMaxRead = 64 * 1024 * 1024;

QString systemError(const QString &what, int code)
{
    return QStringLiteral("%1：%2").arg(what, QString::fromLocal8Bit(std::strerror(code)));
}

bool fail(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}

} // namespace

Image::Image(const QString &path, int fd, qint64 size)
    : m_path(path)
    , m_fd(fd)
    , m_size(size)
{}

Image::~Image()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

std::shared_ptr<const Image> Image::open(const QString &path, QString *error)
{
    // Without O_NONBLOCK a FIFO in the place of an image would hang the service.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        fail(error, systemError(QStringLiteral("无法打开 %1").arg(path), errno));
        return nullptr;
    }
    struct stat info = {};
    const bool isUsable =
        ::fstat(fd, &info) == 0 && (S_ISREG(info.st_mode) || S_ISBLK(info.st_mode));
    const qint64 size = isUsable ? qint64(::lseek(fd, 0, SEEK_END)) : -1;
    if (size < 0) {
        ::close(fd);
        fail(error, QStringLiteral("%1 不是磁盘镜像或块设备").arg(path));
        return nullptr;
    }
    return std::shared_ptr<const Image>(new Image(path, fd, size));
}

std::shared_ptr<const Image> Image::openClaimed(const QString &path, int *code)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_EXCL);
    const qint64 size = fd >= 0 ? qint64(::lseek(fd, 0, SEEK_END)) : -1;
    if (size >= 0)
        return std::shared_ptr<const Image>(new Image(path, fd, size));
    *code = errno;
    if (fd >= 0)
        ::close(fd);
    return nullptr;
}

bool Image::read(qint64 offset, char *to, qint64 length, QString *error) const
{
    if (offset < 0 || length < 0 || offset > m_size || length > m_size - offset)
        return fail(error, QStringLiteral("读取位置超出 %1 的范围").arg(m_path));
    while (length > 0) {
        const qint64 got = readSome(offset, to, length);
        if (got == -EINTR)
            continue;
        if (got < 0)
            return fail(error, systemError(QStringLiteral("读取 %1 失败").arg(m_path), int(-got)));
        if (got == 0)
            return fail(error, QStringLiteral("%1 比打开时短").arg(m_path));
        to += got;
        offset += got;
        length -= got;
    }
    return true;
}

qint64 Image::readSome(qint64 offset, char *to, qint64 length) const
{
    const ssize_t got = ::pread(m_fd, to, size_t(length), off_t(offset));
    return got < 0 ? -qint64(errno) : qint64(got);
}

bool Image::isGone() const
{
    struct stat info = {};
    if (m_fd < 0 || ::fstat(m_fd, &info) != 0 || !S_ISBLK(info.st_mode))
        return false;
    // The descriptor of a removed device stays valid, but the device has no size any more.
    quint64 size = 0;
    return ::ioctl(m_fd, BLKGETSIZE64, &size) != 0 || size == 0;
}

void Image::dropCache() const
{
    if (m_fd >= 0)
        ::posix_fadvise(m_fd, 0, 0, POSIX_FADV_DONTNEED);
}

Volume::Volume(std::shared_ptr<const Image> image, qint64 start, qint64 size)
    : m_image(std::move(image))
    , m_start(qBound(qint64(0), start, m_image->size()))
    , m_size(qBound(qint64(0), size, m_image->size() - m_start))
{}

bool Volume::read(qint64 offset, char *to, qint64 length, QString *error) const
{
    if (!m_image || offset < 0 || length < 0 || offset > m_size || length > m_size - offset)
        return fail(error, QStringLiteral("读取位置超出分区范围"));
    return m_image->read(m_start + offset, to, length, error);
}

QByteArray Volume::read(qint64 offset, qint64 length, QString *error) const
{
    // Bounds first: a length out of a damaged header must not decide how much memory is taken.
    if (length > kMaxRead || offset < 0 || length < 0 || offset > m_size ||
        length > m_size - offset) {
        fail(error, QStringLiteral("读取位置超出分区范围"));
        return QByteArray();
    }
    QByteArray bytes(int(length), Qt::Uninitialized);
    return read(offset, bytes.data(), length, error) ? bytes : QByteArray();
}

} // namespace recoveryd
} // namespace services
