#include "analyzer/readablefile.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 kLargestBlock = 1048576;
constexpr qint64 kSmallestBlock = 4096;

} // namespace

qint64 ReadableFile::blockSizeFor(qint64 size)
{
    return std::max(kSmallestBlock, std::min(size, kLargestBlock - 1) + 1);
}

ReadableFile::ReadableFile(const QString &path, int advice)
    : m_file(
          ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
{
    m_identity = currentIdentity();
    if (isReadable())
        posix_fadvise(m_file.get(), 0, 0, advice);
}

bool ReadableFile::wasUnchanged(const core::FileIdentity *expected) const
{
    return !expected || (core::isStillUnchanged(*expected, m_identity, m_file.get()) &&
                         currentIdentity().isUnchanged(m_identity));
}

qint64 ReadableFile::read(char *buffer, qint64 wanted, qint64 offset) const
{
    qint64 done = 0;
    while (done < wanted) {
        const ssize_t got =
            pread(m_file.get(), buffer + done, size_t(wanted - done), offset + done);
        if (got == 0)
            break;
        if (got > 0)
            done += got;
        else if (errno != EINTR)
            return -1;
    }
    return done;
}

core::FileIdentity ReadableFile::currentIdentity() const
{
    struct stat info;
    return m_file.isOpen() && fstat(m_file.get(), &info) == 0 ? core::identityOf(info)
                                                              : core::FileIdentity();
}
