#include "vaultd/vaultlayout.h"

#include "common/outputfile.h"
#include "common/text.h"
#include "core/filename.h"
#include "core/posixfile.h"
#include "vaultd/failure.h"
#include "vaultd/keep/takeover.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace services {
namespace vaultd {

namespace {

bool makeFolder(const QString &path, QString *error)
{
    if (::mkdir(QFile::encodeName(path).constData(), 0700) != 0 && errno != EEXIST)
        return fail(error, QStringLiteral("无法创建 %1").arg(path), errno);
    struct stat info;
    if (!look(path, &info) || !S_ISDIR(info.st_mode))
        return fail(error, QStringLiteral("无法使用 %1").arg(path), ENOTDIR);
    return true;
}

} // namespace

VaultLayout::VaultLayout(const QString &parent, uid_t owner)
    : m_root(QDir(parent).absoluteFilePath(QLatin1String(vault::kVaultDir)))
    , m_owner(owner)
{
    // As a file in it would be found, whatever links lead to the parent.
    const QString canonical = QDir(parent).canonicalPath();
    if (!canonical.isEmpty())
        m_root = QDir(canonical).filePath(QLatin1String(vault::kVaultDir));
    if (owner != ::geteuid() && ::geteuid() == 0)
        m_dir = std::make_shared<VaultDir>(QFile::encodeName(parent), VaultOwner{owner});
}

VaultLayout VaultLayout::ofMount(const QByteArray &mountPoint)
{
    VaultLayout layout;
    layout.m_root = QDir(QFile::decodeName(mountPoint)).filePath(QLatin1String(vault::kVaultDir));
    layout.m_dir = std::make_shared<VaultDir>(mountPoint, VaultOwner());
    return layout;
}

QString VaultLayout::folder() const
{
    return m_dir && m_dir->isOpen() ? m_dir->path() : m_root;
}

int VaultLayout::openFolder() const
{
    return m_dir && m_dir->isOpen()
               ? ::openat(m_dir->root(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)
               : ::open(QFile::encodeName(m_root).constData(),
                        O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

int VaultLayout::openContent(const QString &id) const
{
    return ::open(QFile::encodeName(content(id)).constData(),
                  O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

bool VaultLayout::prepare(QString *error) const
{
    if (m_dir) {
        if (!m_dir->open(error))
            return false;
        const core::Descriptor aside(m_dir->takeAside());
        if (aside.isOpen())
            takeOver(*this, m_owner, aside.get());
        return true;
    }
    return makeFolder(m_root, error) && makeFolder(meta(), error);
}

bool VaultLayout::prepareExisting(QString *error) const
{
    if (m_dir)
        return m_dir->openExisting(error);
    struct stat info;
    return (look(meta(), &info) && S_ISDIR(info.st_mode)) ||
           fail(error, QStringLiteral("没有保护区"));
}

VaultLock::VaultLock(const VaultLayout &layout)
    : m_change(layout.dir())
    , m_fd(layout.openFolder())
{
    while (m_fd >= 0 && ::flock(m_fd, LOCK_EX) != 0) {
        if (errno == EINTR)
            continue;
        m_code = errno;
        ::close(m_fd);
        m_fd = -1;
        return;
    }
    if (m_fd < 0)
        m_code = errno;
}

VaultLock::~VaultLock()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool VaultLock::isHeld(QString *error) const
{
    return m_fd >= 0 || fail(error, QStringLiteral("无法锁定保护区"), m_code);
}

bool listNames(const QString &dir, QStringList *names, QString *error)
{
    names->clear();
    DIR *const stream = ::opendir(QFile::encodeName(dir).constData());
    if (!stream)
        return fail(error, QStringLiteral("无法读取 %1").arg(dir), errno);
    errno = 0;
    while (const struct dirent *entry = ::readdir(stream)) {
        names->append(core::decodedFileName(entry->d_name));
        errno = 0;
    }
    const int code = errno;
    ::closedir(stream);
    return code == 0 || fail(error, QStringLiteral("无法读取 %1").arg(dir), code);
}

QString idOf(const QString &name, const QString &suffix)
{
    const QString id = name.left(name.size() - suffix.size());
    return name.endsWith(suffix) && isId(id) ? id : QString();
}

bool readRecord(const VaultLayout &layout, const QString &id, VaultFile *file, QString *error)
{
    const QString path = layout.record(id);
    // Not blocking, for what turns out to be a pipe.
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return fail(error, QStringLiteral("无法读取记录"), errno);
    QFile record;
    struct stat info;
    const bool isFit = record.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle) &&
                       ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) &&
                       info.st_size <= vault::kMaxRecordBytes;
    if (!isFit)
        return fail(error, QStringLiteral("记录不是普通文件或过大"));
    const QJsonDocument document = QJsonDocument::fromJson(record.read(vault::kMaxRecordBytes));
    return parseRecord(document.object(), id, file, error);
}

bool writeRecord(const VaultLayout &layout, const VaultFile &file, QString *error)
{
    const QByteArray bytes = QJsonDocument(file.toRecord()).toJson(QJsonDocument::Compact);
    OutputFile output(layout.meta(), VaultLayout::unfinishedRecordName(file.id));
    if (!output.open(error, layout.dir() ? 0640 : 0600) ||
        !output.write(bytes.constData(), bytes.size(), error) || !output.sync(error))
        return false;
    const OutputFile::Publish result = output.publish(VaultLayout::recordName(file.id), error);
    return result == OutputFile::Publish::Done ||
           (result == OutputFile::Publish::Taken &&
            fail(error, QStringLiteral("无法写入记录"), EEXIST));
}

int putRecord(const VaultLayout &layout, const VaultFile &file)
{
    const QByteArray bytes = QJsonDocument(file.toRecord()).toJson(QJsonDocument::Compact);
    const QByteArray unfinished = QFile::encodeName(layout.meta() + QLatin1Char('/') +
                                                    VaultLayout::unfinishedRecordName(file.id));
    const core::Descriptor record(::open(unfinished.constData(),
                                         O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC,
                                         layout.dir() ? 0640 : 0600));
    if (!record.isOpen())
        return errno;
    if (layout.dir() && layout.dir()->owner().isShared()) {
        ::fchmod(record.get(), 0600);
        if (file.user > 0)
            allowReading(record.get(), uid_t(file.user), false);
    }
    int code = core::writeAll(record.get(), bytes);
    if (code == 0 && ::rename(unfinished.constData(),
                              QFile::encodeName(layout.record(file.id)).constData()) != 0)
        code = errno;
    if (code != 0)
        ::unlink(unfinished.constData());
    return code;
}

bool look(const QString &path, struct stat *info)
{
    return ::lstat(QFile::encodeName(path).constData(), info) == 0;
}

bool isPlainFile(const QString &path)
{
    struct stat info;
    return look(path, &info) && S_ISREG(info.st_mode);
}

} // namespace vaultd
} // namespace services
