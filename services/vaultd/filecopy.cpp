#include "vaultd/filecopy.h"

#include "vaultd/failure.h"
#include "vaultd/vaultlayout.h"

#include <QCryptographicHash>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace services {
namespace vaultd {

namespace {

constexpr qint64 kPiece = 1024 * 1024;

/// Opens a plain file, never what a link leads to and never waiting for a pipe.
bool openPlain(const QString &path, QFile *file, struct stat *info)
{
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    return file->open(fd, QIODevice::ReadOnly | QIODevice::Unbuffered,
                      QFileDevice::AutoCloseHandle) &&
           ::fstat(fd, info) == 0 && S_ISREG(info->st_mode);
}

} // namespace

bool copyInto(const QString &source, OutputFile &output, struct stat *info,
              const std::atomic<bool> &stop, QString *error)
{
    QFile file;
    if (!openPlain(source, &file, info))
        return fail(error, QStringLiteral("无法读取文件"));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    qint64 copied = 0;
    for (QByteArray piece; !(piece = file.read(kPiece)).isEmpty(); copied += piece.size()) {
        if (stop)
            return fail(error, QStringLiteral("服务正在退出"));
        hash.addData(piece);
        if (!output.write(piece.constData(), piece.size(), error))
            return false;
    }
    if (file.error() != QFileDevice::NoError)
        return fail(error, QStringLiteral("无法读取文件：%1").arg(file.errorString()));
    QString written;
    output.setAttributes(*info);
    if (!output.sync(error) || !output.readBack(&written, error))
        return false;
    struct stat after;
    if (copied == info->st_size && ::fstat(file.handle(), &after) == 0 &&
        stateText(after) == stateText(*info) &&
        written == QString::fromLatin1(hash.result().toHex()))
        return true;
    return fail(error, QStringLiteral("文件在复制时改变，或副本与原文件不一致"));
}

bool haveSameContent(const QString &a, const QString &b)
{
    QFile first;
    QFile second;
    struct stat firstInfo;
    struct stat secondInfo;
    if (!openPlain(a, &first, &firstInfo) || !openPlain(b, &second, &secondInfo) ||
        firstInfo.st_size != secondInfo.st_size)
        return false;
    if (firstInfo.st_dev == secondInfo.st_dev && firstInfo.st_ino == secondInfo.st_ino)
        return true;
    for (qint64 compared = 0; compared < firstInfo.st_size;) {
        const QByteArray piece = first.read(kPiece);
        if (piece.isEmpty() || second.read(piece.size()) != piece)
            return false;
        compared += piece.size();
    }
    return true;
}

} // namespace vaultd
} // namespace services
