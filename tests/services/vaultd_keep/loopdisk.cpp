#include "loopdisk.h"

#include <QFile>
#include <QProcess>

#include <fcntl.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr qint64 kImageBytes = 400LL * 1024 * 1024; // XFS wants 300 MiB.

bool runs(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

} // namespace

LoopDisk::LoopDisk(TempTree &tree, const QByteArray &type, const char *name)
    : m_mountPoint(tree.dir(QString::fromLatin1(name)))
{
    const QString image = tree.path(QLatin1String(name) + QLatin1String(".img"));
    QFile file(image);
    if (!file.open(QIODevice::WriteOnly) || !file.resize(kImageBytes))
        return;
    file.close();
    QStringList quiet{QStringLiteral("-q")};
    if (type == "ext4")
        quiet.append(QStringLiteral("-F"));
    m_isMounted =
        runs(QStringLiteral("mkfs.") + QString::fromLatin1(type), quiet + QStringList{image}) &&
        runs(QStringLiteral("mount"),
             {QStringLiteral("-o"), QStringLiteral("loop"), image, m_mountPoint});
}

LoopDisk::~LoopDisk()
{
    if (m_isMounted)
        ::umount2(QFile::encodeName(m_mountPoint).constData(), MNT_DETACH);
}

void LoopDisk::fill() const
{
    const QByteArray name = QFile::encodeName(path(QStringLiteral("filler")));
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    for (int size = 1024 * 1024; size > 0; size /= 2) {
        const QByteArray bytes(size, 'f');
        while (::write(fd, bytes.constData(), size_t(bytes.size())) > 0)
            continue;
    }
    ::fsync(fd);
    ::close(fd);
}

void LoopDisk::empty() const
{
    ::unlink(QFile::encodeName(path(QStringLiteral("filler"))).constData());
}

bool asUser(uid_t uid, const std::function<bool()> &work)
{
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isUser =
            ::setgroups(0, nullptr) == 0 && ::setgid(uid) == 0 && ::setuid(uid) == 0;
        ::_exit(isUser && work() ? 0 : 1);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

QByteArray userFile(const QByteArray &path, const QByteArray &content)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const bool isMade =
        fd >= 0 &&
        ::write(fd, content.constData(), size_t(content.size())) == ssize_t(content.size()) &&
        ::fchown(fd, kUser, kUser) == 0;
    ::close(fd);
    return isMade ? path : QByteArray();
}

QByteArray bytesOf(const QByteArray &path)
{
    const int fd = ::open(path.constData(), O_RDONLY | O_NOFOLLOW);
    QFile file;
    return fd >= 0 && file.open(fd, QIODevice::ReadOnly, QFile::AutoCloseHandle) ? file.readAll()
                                                                                 : QByteArray();
}
