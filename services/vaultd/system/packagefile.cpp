#include "vaultd/system/packagefile.h"

#include "vaultd/failure.h"

#include <QCryptographicHash>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr qint64 kPiece = 1024 * 1024;
constexpr qint64 kMaxBytes = 4LL * 1024 * 1024 * 1024;

} // namespace

int openPackage(const QString &path, const UserIdentity &user, QString *error)
{
    const ActAs rights(user);
    if (!rights.isActive(error))
        return -1;
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat info;
    QString why;
    if (fd < 0 || ::fstat(fd, &info) != 0)
        why = QStringLiteral("无法读取更新包");
    else if (!S_ISREG(info.st_mode) || info.st_size == 0 || info.st_size > kMaxBytes)
        why = QStringLiteral("更新包不是普通文件");
    else if ((info.st_uid != user.uid && info.st_uid != 0) ||
             (info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        why = QStringLiteral("更新包可被其他用户修改，不予安装");
    if (why.isEmpty())
        return fd;
    if (fd >= 0)
        ::close(fd);
    *error = why;
    return -1;
}

bool copyPackage(int fd, const QString &copy, const std::atomic<bool> &stop, QString *sha256,
                 QString *error)
{
    QFile source;
    QFile target;
    const int out = ::open(QFile::encodeName(copy).constData(),
                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (out < 0)
        return fail(error, QStringLiteral("无法保存更新包"), errno);
    if (!target.open(out, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle) ||
        !source.open(fd, QIODevice::ReadOnly))
        return fail(error, QStringLiteral("无法读取更新包"));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    qint64 copied = 0;
    for (QByteArray piece; !(piece = source.read(kPiece)).isEmpty(); copied += piece.size()) {
        if (stop || copied > kMaxBytes)
            return fail(error, QStringLiteral("安装已取消"));
        hash.addData(piece);
        if (target.write(piece) != piece.size())
            return fail(error, QStringLiteral("无法保存更新包：%1").arg(target.errorString()));
    }
    if (source.error() != QFileDevice::NoError)
        return fail(error, QStringLiteral("无法读取更新包：%1").arg(source.errorString()));
    if (!target.flush() || ::fsync(out) != 0)
        return fail(error, QStringLiteral("无法保存更新包"), errno);
    *sha256 = QString::fromLatin1(hash.result().toHex());
    return true;
}

} // namespace services::vaultd
