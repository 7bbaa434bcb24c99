#include "wechat/spacereserve.h"

#include "core/descriptor.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>

namespace wechat {

namespace {

constexpr qint64 kLeastBytes = 64 * 1024;
/// Blocks are larger than what is written to them, and so are the entries of directories.
constexpr qint64 kSlackBytes = 32 * 1024;

} // namespace

SpaceReserve::SpaceReserve(FileOperations &operations, const CleanFolders &folders)
    : m_operations(operations)
    , m_folders(folders)
{}

void SpaceReserve::fill()
{
    // The folders take room as well.
    if (!QDir().mkpath(m_folders.journal) || !QDir().mkpath(m_folders.operations))
        return;
    const core::Descriptor file(m_operations.open(
        QFile::encodeName(m_folders.reserve), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600));
    struct stat info;
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return;
    for (qint64 bytes = kBytes; bytes >= kLeastBytes && bytes > info.st_size; bytes /= 4) {
        if (m_operations.allocate(file.get(), bytes) == 0)
            return;
        // What was allocated before the disk was full goes back.
        if (::ftruncate(file.get(), info.st_size) != 0)
            return;
    }
}

void SpaceReserve::refill()
{
    if (identify(m_operations, m_folders.reserve).regular)
        fill();
}

int SpaceReserve::use(qint64 bytes, const std::function<int()> &work)
{
    const int code = work();
    return isNoSpace(code) && give(bytes) ? work() : code;
}

bool SpaceReserve::give(qint64 bytes)
{
    const core::Descriptor file(
        m_operations.open(QFile::encodeName(m_folders.reserve), O_RDWR | O_NOFOLLOW | O_NONBLOCK));
    struct stat info;
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
        info.st_size == 0)
        return false;
    const qint64 left = qMax<qint64>(0, info.st_size - bytes - kSlackBytes);
    // Some file systems free the blocks with the flush.
    return ::ftruncate(file.get(), left) == 0 && m_operations.fsync(file.get()) == 0;
}

} // namespace wechat
