#include "vault/vaultreader.h"

#include "core/descriptor.h"
#include "core/filename.h"
#include "vault/vaultrecord.h"

#include <QDebug>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace vault {

using core::Descriptor;

namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
// Opening a pipe that nobody writes would wait for ever.
constexpr int kFileFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

/// The vault's directory and that of its records, each opened from the one before, so that nothing
/// that is swapped in between leads elsewhere.
struct OpenVault
{
    explicit OpenVault(const QString &parent)
        : parentDir(::open(QFile::encodeName(parent).constData(), kDirectoryFlags))
        , dir(::openat(parentDir.get(), kVaultDir, kDirectoryFlags))
        , meta(::openat(dir.get(), kMetaDir, kDirectoryFlags))
    {}

    // A relative path below -1 is refused, so the last one tells about all.
    bool isThere() const { return parentDir.isOpen() && dir.isOpen() && meta.isOpen(); }

    Descriptor parentDir;
    Descriptor dir;
    Descriptor meta;
};

/// Asks the disk only where the directory does not tell.
bool isRegularFile(int dirFd, const dirent &entry)
{
    struct stat info = {};
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_REG;
    return ::fstatat(dirFd, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(info.st_mode);
}

/// The names of the regular files in the directory that end like this, sorted. Hidden ones are left
/// out.
std::vector<QByteArray> filesIn(int dirFd, const char *suffix)
{
    std::vector<QByteArray> names;
    Descriptor fd(::fcntl(dirFd, F_DUPFD_CLOEXEC, 0));
    DIR *const dir = ::fdopendir(fd.get());
    if (!dir)
        return names;
    fd.release(); // closed with the directory
    while (const dirent *entry = ::readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (name.startsWith('.') || !name.endsWith(suffix) || !isRegularFile(dirFd, *entry))
            continue;
        if (names.size() >= kMaxRecords) {
            qWarning() << "[VaultReader] only" << kMaxRecords << "files of a vault are looked at";
            break;
        }
        names.push_back(name);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

/// Fills `bytes` with the whole file. False if it is none, cannot be read or is too large.
bool readSmallFile(int dirFd, const QByteArray &name, QByteArray *bytes)
{
    const Descriptor file(::openat(dirFd, name.constData(), kFileFlags));
    struct stat info = {};
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
        info.st_size > kMaxRecordBytes)
        return false;
    bytes->resize(int(info.st_size));
    int length = 0;
    while (length < bytes->size()) {
        const ssize_t got =
            ::read(file.get(), bytes->data() + length, size_t(bytes->size() - length));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        if (got == 0)
            break;
        length += int(got);
    }
    bytes->resize(length);
    return true;
}

QByteArray contentName(const QString &id)
{
    return QFile::encodeName(id) + kContentSuffix;
}

} // namespace

bool hasVault(const QString &parent)
{
    return OpenVault(parent).isThere();
}

QJsonArray loadVaultFiles(const QString &parent, const std::function<bool()> &isStopped)
{
    QJsonArray files;
    const OpenVault vault(parent);
    if (!vault.isThere())
        return files;
    QByteArray bytes;
    qint64 text = 0;
    const std::vector<QByteArray> contents = filesIn(vault.dir.get(), kContentSuffix);
    for (const QByteArray &name : filesIn(vault.meta.get(), kRecordSuffix)) {
        if (text > kMaxVaultText || (isStopped && isStopped()))
            break;
        const QString fileName = core::decodedFileName(name.constData());
        if (fileName.isEmpty() || !readSmallFile(vault.meta.get(), name, &bytes))
            continue;
        const QJsonObject record = recordFrom(bytes, fileName);
        const QByteArray content = contentName(record.value(QLatin1String("id")).toString());
        if (record.isEmpty() || !std::binary_search(contents.begin(), contents.end(), content))
            continue;
        text += textSize(record);
        files.append(record);
    }
    return files;
}

int openVaultContent(const QString &parent, const QString &id, QString *error)
{
    const auto fail = [error](const QString &why) {
        *error = why;
        return -1;
    };
    if (!isVaultId(id))
        return fail(QStringLiteral("受保护文件的编号无效"));
    const OpenVault vault(parent);
    if (!vault.isThere())
        return fail(QStringLiteral("%1 中没有保护区").arg(parent));
    Descriptor file(::openat(vault.dir.get(), contentName(id).constData(), kFileFlags));
    if (!file.isOpen())
        return fail(QStringLiteral("无法读取受保护的内容：%1")
                        .arg(QString::fromLocal8Bit(std::strerror(errno))));
    struct stat info = {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return fail(QStringLiteral("受保护的内容不是普通文件"));
    return file.release();
}

} // namespace vault
