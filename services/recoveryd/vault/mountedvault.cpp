#include "recoveryd/vault/mountedvault.h"

#include "core/descriptor.h"
#include "core/pathutil.h"
#include "vault/vaultreader.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace services {
namespace recoveryd {

namespace {

class FileContent : public VaultContent
{
public:
    /// Takes over the descriptor of a regular file.
    explicit FileContent(int fd)
        : m_fd(fd)
    {
        struct stat info = {};
        if (::fstat(fd, &info) == 0)
            m_size = info.st_size;
    }
    qint64 size() const override { return m_size; }

    Ranges dataRanges() const override
    {
        Ranges ranges;
        for (qint64 at = 0; at < m_size;) {
            const qint64 start = ::lseek(m_fd.get(), at, SEEK_DATA);
            if (start < 0 && errno == ENXIO) // nothing but a hole
                return ranges;
            const qint64 end = start < 0 ? -1 : ::lseek(m_fd.get(), start, SEEK_HOLE);
            if (end <= start)
                return {{0, m_size}}; // a file system that knows no holes
            ranges.append({start, qMin(end, m_size) - start});
            at = end;
        }
        return ranges;
    }

    bool read(qint64 offset, char *to, qint64 length, QString *error) const override
    {
        while (length > 0) {
            const ssize_t got = ::pread(m_fd.get(), to, size_t(length), off_t(offset));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0) {
                *error = got == 0 ? QStringLiteral("内容比预期短")
                                  : QString::fromLocal8Bit(std::strerror(errno));
                return false;
            }
            to += got;
            offset += got;
            length -= got;
        }
        return true;
    }

private:
    core::Descriptor m_fd;
    qint64 m_size = 0;
};

class MountedVault : public FoundVault
{
public:
    using FoundVault::FoundVault;

    QJsonArray records(const Stopped &isStopped) const override
    {
        return vault::loadVaultFiles(location().vaultParentDir, isStopped);
    }

    std::unique_ptr<VaultContent> open(const QString &id, QString *error) const override
    {
        const int fd = vault::openVaultContent(location().vaultParentDir, id, error);
        if (fd < 0)
            return nullptr;
        return std::make_unique<FileContent>(fd);
    }
};

/// The device that shows at the directory; empty if that is unknown.
QString deviceAt(const QString &dir)
{
    QFile mounts(QStringLiteral("/proc/mounts"));
    if (!mounts.open(QIODevice::ReadOnly))
        return QString();
    vault::MountedPartition deepest;
    const QVector<vault::MountedPartition> partitions = vault::parseMounts(mounts.readAll());
    for (const vault::MountedPartition &partition : partitions)
        if (core::isInside(dir, partition.mountPoint) &&
            partition.mountPoint.size() >= deepest.mountPoint.size())
            deepest = partition;
    return deepest.devicePath;
}

} // namespace

FoundVaults vaultsBelow(const QString &targetDir)
{
    FoundVaults found;
    const QString dir = QDir(targetDir).canonicalPath();
    if (dir.isEmpty())
        return found;
    const QVector<vault::VaultLocation> locations = vault::vaultsOn({deviceAt(dir), dir});
    for (const vault::VaultLocation &location : locations)
        found.append(std::make_shared<MountedVault>(location));
    return found;
}

} // namespace recoveryd
} // namespace services
