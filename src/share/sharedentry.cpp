#include "share/sharedentry.h"

#include <QFile>
#include <QList>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(SYS_openat2) && __has_include(<linux/openat2.h>)
#define MORVANE_HAS_OPENAT2
#include <linux/openat2.h>
#endif

namespace share {

namespace {

constexpr int kPathOnly = O_PATH | O_CLOEXEC;
constexpr int kForReading = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

/// With errno set: EXDEV if the path leads out of the directory, or would have to be followed by
/// way of an absolute link; ENOSYS where the kernel cannot tell.
int openInKernel(int root, const QByteArray &path)
{
#ifdef MORVANE_HAS_OPENAT2
    constexpr int kTries = 32;
    open_how how = {};
    how.flags = kPathOnly;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    for (int i = 0; i < kTries; ++i) {
        const long fd = ::syscall(SYS_openat2, root, path.constData(), &how, sizeof how);
        // EAGAIN: something was renamed while a ".." of a link was followed.
        if (fd >= 0 || (errno != EAGAIN && errno != EINTR))
            return static_cast<int>(fd);
    }
    return -1;
#else
    Q_UNUSED(root)
    Q_UNUSED(path)
    errno = ENOSYS;
    return -1;
#endif
}

QByteArray procPath(int descriptor)
{
    return "/proc/self/fd/" + QByteArray::number(descriptor);
}

/// Null if the path cannot be followed.
QByteArray canonical(const QByteArray &path)
{
    const std::unique_ptr<char, decltype(&std::free)> resolved(
        ::realpath(path.constData(), nullptr), &std::free);
    return QByteArray(resolved.get());
}

/// A path without links.
int openWithoutLinks(int root, const QByteArray &path)
{
    int at = ::openat(root, ".", kPathOnly | O_DIRECTORY);
    const QList<QByteArray> parts = path.split('/');
    for (const QByteArray &part : parts) {
        if (part.isEmpty())
            continue;
        const core::Descriptor directory(at);
        if (!directory.isOpen())
            return -1;
        at = ::openat(directory.get(), part.constData(), kPathOnly | O_NOFOLLOW);
    }
    core::Descriptor found(at);
    struct stat status = {};
    // Of a last part that has become a link meanwhile, this opens the link itself.
    if (!found.isOpen() || ::fstat(found.get(), &status) != 0 || S_ISLNK(status.st_mode))
        return -1;
    return found.release();
}

/// Finds out where the links of a path lead, and then walks there without any.
int openByCanonicalPath(int root, const QByteArray &path)
{
    QByteArray top = canonical(procPath(root));
    QByteArray target = canonical(procPath(root) + '/' + path);
    if (top.isEmpty() || target.isEmpty())
        return -1;
    if (!top.endsWith('/'))
        top += '/';
    if (target + '/' == top)
        target = top;
    return target.startsWith(top) ? openWithoutLinks(root, target.mid(top.size())) : -1;
}

int openBelow(int root, const QByteArray &path, SharedEntry::Walk walk)
{
    if (walk == SharedEntry::Walk::Kernel) {
        const int fd = openInKernel(root, path);
        // A filter of system calls says EPERM.
        if (fd >= 0 || (errno != EXDEV && errno != ENOSYS && errno != EPERM))
            return fd;
    }
    return openByCanonicalPath(root, path);
}

} // namespace

SharedEntry::SharedEntry(int descriptor)
    : m_descriptor(descriptor)
{
    if (isOpen() && ::fstat(m_descriptor.get(), &m_status) != 0)
        m_status = {};
}

SharedEntry::SharedEntry(SharedEntry &&other) noexcept
    : m_descriptor(other.m_descriptor.release())
    , m_status(other.m_status)
{}

SharedEntry &SharedEntry::operator=(SharedEntry &&other) noexcept
{
    m_descriptor.reset(other.m_descriptor.release());
    m_status = other.m_status;
    return *this;
}

SharedEntry SharedEntry::root(const QString &localPath)
{
    // The system would cut the path at a NUL and open another one.
    if (localPath.contains(QChar(QChar::Null)))
        return SharedEntry(-1);
    return SharedEntry(::open(QFile::encodeName(localPath).constData(), kPathOnly));
}

SharedEntry SharedEntry::below(const QString &relative, Walk walk) const
{
    if (!isDirectory() || relative.contains(QChar(QChar::Null)))
        return SharedEntry(-1);
    const QByteArray path = relative.isEmpty() ? QByteArray(".") : QFile::encodeName(relative);
    return SharedEntry(openBelow(descriptor(), path, walk));
}

int SharedEntry::openForReading() const
{
    if (isDirectory())
        return ::openat(descriptor(), ".", kForReading | O_DIRECTORY);
    return isFile() ? ::open(procPath(descriptor()).constData(), kForReading) : -1;
}

} // namespace share
