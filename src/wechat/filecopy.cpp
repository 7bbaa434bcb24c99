#include "wechat/filecopy.h"

#include "core/descriptor.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace wechat {

using core::Descriptor;

namespace {

constexpr int kChunkBytes = 1024 * 1024;
constexpr mode_t kPermissions = 0777; // A copy must not gain the set-id bits of another owner.

/// Up to a chunk, less only at the end of the file; -1 on failure.
int readChunk(FileOperations &operations, int fd, QByteArray *buffer)
{
    int got = 0;
    buffer->resize(kChunkBytes);
    while (got < kChunkBytes) {
        const ssize_t count =
            operations.read(fd, buffer->data() + got, static_cast<size_t>(kChunkBytes - got));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        got += static_cast<int>(count);
    }
    buffer->truncate(got);
    return got;
}

/// As copyToNewFile().
int copyContent(FileOperations &operations, int from, int to, qint64 size)
{
    QByteArray buffer;
    qint64 copied = 0;
    for (;;) {
        const int got = readChunk(operations, from, &buffer);
        if (got < 0 || !writeAll(operations, to, buffer))
            return errno;
        copied += got;
        if (got < kChunkBytes)
            return copied == size ? 0 : ESTALE;
    }
}

int fillCopy(FileOperations &operations, int from, int to, const FileIdentity &expected)
{
    struct stat before;
    struct stat after;
    struct stat copy;
    if (::fstat(from, &before) != 0)
        return errno;
    if (before.st_dev != expected.device || before.st_ino != expected.inode ||
        !S_ISREG(before.st_mode))
        return ESTALE;
    const int code = copyContent(operations, from, to, before.st_size);
    if (code != 0)
        return code;
    if (::fchmod(to, before.st_mode & kPermissions) != 0 || operations.fsync(to) != 0 ||
        ::fstat(from, &after) != 0 || ::fstat(to, &copy) != 0)
        return errno;
    const bool unchanged = after.st_size == before.st_size && copy.st_size == before.st_size &&
                           after.st_mtim.tv_sec == before.st_mtim.tv_sec &&
                           after.st_mtim.tv_nsec == before.st_mtim.tv_nsec;
    return unchanged ? 0 : ESTALE;
}

} // namespace

int copyToNewFile(FileOperations &operations, const QString &source, const FileIdentity &expected,
                  const QString &target)
{
    const QByteArray targetName = QFile::encodeName(target);
    const Descriptor from(operations.open(QFile::encodeName(source), O_RDONLY | O_NONBLOCK));
    if (!from.isOpen())
        return errno;
    const Descriptor to(operations.open(targetName, O_WRONLY | O_CREAT | O_EXCL, 0600));
    if (!to.isOpen())
        return errno;
    const int code = fillCopy(operations, from.get(), to.get(), expected);
    if (code != 0)
        operations.unlink(targetName);
    return code;
}

bool isBeginningOf(FileOperations &operations, const QString &path, const QString &whole)
{
    const Descriptor part(
        operations.open(QFile::encodeName(path), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    const Descriptor full(operations.open(QFile::encodeName(whole), O_RDONLY | O_NONBLOCK));
    struct stat info;
    if (!part.isOpen() || !full.isOpen() || ::fstat(part.get(), &info) != 0 ||
        !S_ISREG(info.st_mode))
        return false;
    QByteArray partBuffer;
    QByteArray fullBuffer;
    for (;;) {
        const int got = readChunk(operations, part.get(), &partBuffer);
        if (got < 0 || readChunk(operations, full.get(), &fullBuffer) < got ||
            !fullBuffer.startsWith(partBuffer))
            return false;
        if (got < kChunkBytes)
            return true;
    }
}

} // namespace wechat
