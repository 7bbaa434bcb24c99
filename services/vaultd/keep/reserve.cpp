#include "vaultd/keep/reserve.h"

#include <QDebug>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace services::vaultd {

namespace {
constexpr qint64 kPiece = 512 * 1024; // bytes
} // namespace

Reserve::Reserve(const VaultLayout &layout)
    : m_layout(layout)
{}

int Reserve::openFile(int flags) const
{
    const QByteArray path = QFile::encodeName(m_layout.path(QStringLiteral(".reserve")));
    return ::open(path.constData(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | flags, 0600);
}

void Reserve::refill()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const core::Descriptor file(openFile(O_CREAT));
    struct stat info;
    struct statvfs disk;
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
        info.st_size >= kBytes || ::fstatvfs(file.get(), &disk) != 0 ||
        qint64(disk.f_bavail) * qint64(disk.f_frsize) < 2 * kBytes)
        return;
    // Blocks that are there but never read or written; where the file system has none, no reserve.
    if (::fallocate(file.get(), 0, 0, kBytes) != 0 && ::ftruncate(file.get(), 0) != 0)
        qWarning() << "[Vault] the reserve cannot be emptied:" << qt_error_string(errno);
}

bool Reserve::release()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const core::Descriptor file(openFile(0));
    struct stat info;
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0 || info.st_size <= 0)
        return false;
    return ::ftruncate(file.get(), qMax(qint64(0), qint64(info.st_size) - kPiece)) == 0;
}

} // namespace services::vaultd
