#include "ntfsimage.h"

#include "support/privatemounts.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStorageInfo>
#include <QThread>

#include <fcntl.h>
#include <sys/xattr.h>

namespace {

QString tool(const char *name)
{
    const QString program = QString::fromLatin1(name);
    const QString found = QStandardPaths::findExecutable(program);
    return found.isEmpty() ? QStandardPaths::findExecutable(
                                 program, {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")})
                           : found;
}

bool run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

bool isMountPoint(const QString &path)
{
    return QStorageInfo(path).rootPath() == QFileInfo(path).canonicalFilePath();
}

} // namespace

QString NtfsImage::obstacle()
{
    static const bool hasMounts = testsupport::enterPrivateMounts();
    for (const char *name : {"mkntfs", "ntfs-3g"})
        if (tool(name).isEmpty())
            return QStringLiteral("%1 is missing").arg(QString::fromLatin1(name));
    if (::geteuid() != 0 || !QFile::exists(QStringLiteral("/dev/fuse")) || !hasMounts)
        return QStringLiteral("needs root, /dev/fuse and private mounts");
    return QString();
}

NtfsImage::NtfsImage(const QString &path, const QString &mountPoint)
    : m_path(path)
    , m_mountPoint(mountPoint)
{}

NtfsImage::~NtfsImage()
{
    if (m_driver.state() != QProcess::NotRunning && !unmount())
        m_driver.kill();
}

bool NtfsImage::format(int sizeMiB, const QStringList &options)
{
    QFile file(m_path);
    return file.open(QIODevice::ReadWrite | QIODevice::Truncate) &&
           file.resize(qint64(sizeMiB) << 20) && formatAgain(options);
}

bool NtfsImage::formatAgain(const QStringList &options)
{
    return run(tool("mkntfs"),
               QStringList{QStringLiteral("-F"), QStringLiteral("-Q"), QStringLiteral("-q")} +
                   options + QStringList(m_path));
}

bool NtfsImage::mount()
{
    constexpr int kPatienceMs = 20000;
    m_driver.start(tool("ntfs-3g"), {QStringLiteral("-o"), QStringLiteral("no_detach,compression"),
                                     m_path, m_mountPoint});
    if (!m_driver.waitForStarted())
        return false;
    // The driver does not say when it is ready.
    QElapsedTimer time;
    time.start();
    while (!isMountPoint(m_mountPoint)) {
        if (time.elapsed() > kPatienceMs || m_driver.waitForFinished(10))
            return false;
    }
    return true;
}

bool NtfsImage::unmount()
{
    return run(tool("umount"), {m_mountPoint}) && m_driver.waitForFinished(60000);
}

bool NtfsImage::write(const QString &name, const QByteArray &bytes) const
{
    QFile file(inside(name));
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

bool NtfsImage::leaveGaps(qint64 bytes, int gap) const
{
    const auto nameOf = [](qint64 i) {
        return QStringLiteral("spacer-%1").arg(i);
    };
    QFile ballast(inside(QStringLiteral("spacer")));
    // The spacers' own records need room, too.
    if (!ballast.open(QIODevice::WriteOnly) ||
        ::posix_fallocate(ballast.handle(), 0, bytesFree() - 5 * bytes) != 0)
        return false;
    qint64 count = 0;
    while (bytesFree() > qMax(4 * gap, 64 * 1024) && write(nameOf(count), QByteArray(gap, 's')))
        ++count;
    for (qint64 i = 0; i < count && i * gap < 2 * bytes; i += 2)
        if (!remove(nameOf(i)))
            return false;
    return count * gap > 2 * bytes;
}

bool NtfsImage::makeFolder(const QString &name) const
{
    return QDir(m_mountPoint).mkpath(name);
}

bool NtfsImage::compress(const QString &folder) const
{
    const char flags[4] = {0, 0x08, 0, 0}; // FILE_ATTRIBUTE_COMPRESSED
    return ::setxattr(QFile::encodeName(inside(folder)).constData(), "system.ntfs_attrib", flags,
                      sizeof(flags), 0) == 0;
}

bool NtfsImage::writeStream(const QString &name, const QByteArray &stream,
                            const QByteArray &bytes) const
{
    return ::setxattr(QFile::encodeName(inside(name)).constData(), ("user." + stream).constData(),
                      bytes.constData(), size_t(bytes.size()), 0) == 0;
}

qint64 NtfsImage::bytesFree() const
{
    return QStorageInfo(m_mountPoint).bytesFree();
}

bool NtfsImage::remove(const QString &name) const
{
    const QFileInfo info(inside(name));
    return info.isDir() ? QDir(info.filePath()).removeRecursively()
                        : QFile::remove(info.filePath());
}
