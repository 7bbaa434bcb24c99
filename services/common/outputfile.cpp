#include "common/outputfile.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace services {

namespace {

constexpr int kMaxStandIns = 10000;
constexpr int kMaxNameBytes = 200;
constexpr qint64 kPiece = 1024 * 1024;

bool fail(QString *error, const QString &what, int code)
{
    if (error)
        *error = QStringLiteral("%1：%2").arg(what, QString::fromLocal8Bit(std::strerror(code)));
    return false;
}

} // namespace

bool syncDirectory(const QString &dir)
{
    const int fd = ::open(QFile::encodeName(dir).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool isSynced = ::fsync(fd) == 0;
    ::close(fd);
    return isSynced;
}

int makeOutputFolder(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    if (::mkdir(name.constData(), 0755) != 0)
        return errno;
    struct stat around = {};
    if (::geteuid() == 0 &&
        ::stat(QFile::encodeName(QFileInfo(path).path()).constData(), &around) == 0)
        (void)!::lchown(name.constData(), around.st_uid, around.st_gid);
    return 0;
}

bool makeOutputPath(const QString &path)
{
    if (QFileInfo(path).isDir())
        return true;
    const QString above = QFileInfo(path).path();
    return above != path && makeOutputPath(above) && makeOutputFolder(path) == 0;
}

OutputFile::OutputFile(const QString &dir, const QString &temporaryName)
    : m_dir(dir)
    , m_temporaryName(temporaryName)
{}

OutputFile::~OutputFile()
{
    if (m_fd < 0)
        return;
    ::close(m_fd);
    if (!m_isPublished)
        ::unlink(QFile::encodeName(path(m_temporaryName)).constData());
}

bool OutputFile::open(QString *error, mode_t mode)
{
    m_fd = ::open(QFile::encodeName(path(m_temporaryName)).constData(),
                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    return m_fd >= 0 || fail(error, QStringLiteral("无法创建文件"), errno);
}

bool OutputFile::openLink(const QString &existing)
{
    const QByteArray name = QFile::encodeName(path(m_temporaryName));
    if (::link(QFile::encodeName(existing).constData(), name.constData()) != 0)
        return false;
    m_fd = ::open(name.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (m_fd < 0)
        ::unlink(name.constData());
    return m_fd >= 0;
}

bool OutputFile::becomeLink(const QString &existing)
{
    const QByteArray from = QFile::encodeName(existing);
    const QByteArray name = QFile::encodeName(path(m_temporaryName));
    const QByteArray aside = name + ".link";
    ::unlink(aside.constData());
    if (::link(from.constData(), aside.constData()) != 0)
        return false;
    // Not by the new name: others may write the folder.
    const int fd = ::open(from.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0 || ::rename(aside.constData(), name.constData()) != 0) {
        ::unlink(aside.constData());
        if (fd >= 0)
            ::close(fd);
        return false;
    }
    ::close(m_fd);
    m_fd = fd;
    return true;
}

bool OutputFile::isNamed(const QByteArray &name) const
{
    struct stat own;
    struct stat named;
    const QByteArray full = QFile::encodeName(m_dir) + '/' + name;
    return ::fstat(m_fd, &own) == 0 && ::lstat(full.constData(), &named) == 0 &&
           own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

bool OutputFile::write(const char *bytes, qint64 length, QString *error)
{
    while (length > 0) {
        const ssize_t written = ::write(m_fd, bytes, size_t(length));
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return fail(error, QStringLiteral("写入失败"), errno);
        bytes += written;
        length -= written;
    }
    return true;
}

bool OutputFile::seek(qint64 offset, QString *error)
{
    return ::lseek(m_fd, off_t(offset), SEEK_SET) >= 0 ||
           fail(error, QStringLiteral("写入失败"), errno);
}

bool OutputFile::setSize(qint64 size, QString *error)
{
    return ::ftruncate(m_fd, off_t(size)) == 0 || fail(error, QStringLiteral("写入失败"), errno);
}

void OutputFile::setAttributes(const struct stat &info)
{
    // The owner first: a change of it takes permissions away. Those of a file that stays this
    // user's are for this user only.
    const bool isOwner = ::fchown(m_fd, info.st_uid, info.st_gid) == 0;
    ::fchmod(m_fd, info.st_mode & (isOwner ? 0777 : 0700));
    const struct timespec times[] = {info.st_atim, info.st_mtim};
    ::futimens(m_fd, times);
}

void OutputFile::giveToFolderOwner()
{
    struct stat folder = {};
    if (::geteuid() == 0 && ::stat(QFile::encodeName(m_dir).constData(), &folder) == 0)
        (void)!::fchown(m_fd, folder.st_uid, folder.st_gid);
}

void OutputFile::setModified(qint64 ms)
{
    const qint64 seconds = ms >= 0 ? ms / 1000 : (ms - 999) / 1000;
    struct timespec times[2] = {};
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = time_t(seconds);
    times[1].tv_nsec = long(ms - seconds * 1000) * 1000000;
    ::futimens(m_fd, times);
}

bool OutputFile::sync(QString *error)
{
    return ::fsync(m_fd) == 0 || fail(error, QStringLiteral("写入磁盘失败"), errno);
}

bool OutputFile::readBack(QString *sha256, QString *error) const
{
    ::posix_fadvise(m_fd, 0, 0, POSIX_FADV_DONTNEED);
    // Not by its name, which others may have given away meanwhile.
    QFile file(QStringLiteral("/proc/self/fd/%1").arg(m_fd));
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("无法读回文件：%1").arg(file.errorString());
        return false;
    }
    QCryptographicHash hash(QCryptographicHash::Sha256);
    QByteArray piece;
    while (!(piece = file.read(kPiece)).isEmpty())
        hash.addData(piece);
    if (file.error() != QFileDevice::NoError) {
        *error = QStringLiteral("无法读回文件：%1").arg(file.errorString());
        return false;
    }
    *sha256 = QString::fromLatin1(hash.result().toHex());
    return true;
}

OutputFile::Publish OutputFile::publish(const QString &name, QString *error)
{
    return publish(QFile::encodeName(name), error);
}

OutputFile::Publish OutputFile::publish(const QByteArray &name, QString *error)
{
    const int code = renameToFree(QFile::encodeName(path(m_temporaryName)),
                                  QFile::encodeName(m_dir) + '/' + name);
    if (code == EEXIST)
        return Publish::Taken;
    if (code != 0) {
        fail(error, QStringLiteral("无法命名文件"), code);
        return Publish::Failed;
    }
    m_isPublished = true;
    syncDirectory(m_dir);
    return Publish::Done;
}

QString numberedName(const QString &name, int number)
{
    if (number <= 0)
        return name;
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    const int stem = dot > 0 ? dot : name.size();
    return QStringLiteral("%1 (%2)%3").arg(name.left(stem)).arg(number).arg(name.mid(stem));
}

OutputFile::Publish publishUnderFreeName(OutputFile &output, QString *name, QString *error)
{
    const QString wanted = *name;
    auto published = OutputFile::Publish::Taken;
    for (int i = 0; published == OutputFile::Publish::Taken && i < kMaxStandIns; ++i) {
        *name = numberedName(wanted, i);
        published = output.publish(*name, error);
    }
    if (published == OutputFile::Publish::Taken)
        *error = QStringLiteral("同名文件过多");
    return published;
}

QString plainName(const QString &text)
{
    QString name;
    for (const QChar c : text)
        name.append(c == QLatin1Char('/') || c.unicode() < 0x20 || c.unicode() == 0x7F
                        ? QLatin1Char('_')
                        : c);
    if (name.startsWith(QLatin1Char('.')))
        name[0] = QLatin1Char('_');
    if (name.isEmpty())
        name = QStringLiteral("recovered");
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    const QString suffix = dot > 0 && name.size() - dot <= 16 ? name.mid(dot) : QString();
    QString stem = name.left(name.size() - suffix.size());
    while ((stem + suffix).toUtf8().size() > kMaxNameBytes)
        stem.chop(1);
    return stem + suffix;
}

qint64 freeBytesAt(const QString &dir)
{
    QString existing = QFileInfo(dir).absoluteFilePath();
    while (!QFileInfo::exists(existing) && existing != QLatin1String("/"))
        existing = QFileInfo(existing).absolutePath();
    const QStorageInfo storage(existing);
    return storage.isValid() ? storage.bytesAvailable() : -1;
}

} // namespace services
