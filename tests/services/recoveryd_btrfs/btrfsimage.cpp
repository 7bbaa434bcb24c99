#include "btrfsimage.h"

#include "support/diskimages.h"
#include "support/privatemounts.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <fcntl.h>
#include <unistd.h>

using namespace diskimages;

namespace {

bool run(const char *tool, const QStringList &arguments)
{
    QString error;
    const bool isDone = runTool(QLatin1String(tool), arguments, &error);
    if (!isDone)
        qWarning("%s", qPrintable(error));
    return isDone;
}

bool isThere(const char *tool)
{
    const QString name = QLatin1String(tool);
    return !QStandardPaths::findExecutable(name).isEmpty() ||
           !QStandardPaths::findExecutable(name,
                                           {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")})
                .isEmpty();
}

} // namespace

QString BtrfsImage::obstacle()
{
    static const bool hasMounts = testsupport::enterPrivateMounts();
    for (const char *name : {"mkfs.btrfs", "btrfs"})
        if (!isThere(name))
            return QStringLiteral("%1 is missing").arg(QLatin1String(name));
    QFile fileSystems(QStringLiteral("/proc/filesystems"));
    if (!fileSystems.open(QIODevice::ReadOnly) || !fileSystems.readAll().contains("btrfs"))
        return QStringLiteral("the kernel has no Btrfs");
    if (::geteuid() != 0 || !QFile::exists(QStringLiteral("/dev/loop-control")) || !hasMounts)
        return QStringLiteral("needs root, loop devices and private mounts");
    return QString();
}

BtrfsImage::BtrfsImage(const QString &path, const QString &mountPoint)
    : m_path(path)
    , m_mountPoint(mountPoint)
{}

BtrfsImage::~BtrfsImage()
{
    if (m_isMounted && !unmount())
        qWarning("%s stays mounted", qPrintable(m_mountPoint));
}

bool BtrfsImage::format(int sizeMiB, const QStringList &options)
{
    QFile file(m_path);
    return file.open(QIODevice::ReadWrite | QIODevice::Truncate) &&
           file.resize(qint64(sizeMiB) << 20) && formatAgain(options);
}

bool BtrfsImage::formatAgain(const QStringList &options)
{
    return run("mkfs.btrfs",
               QStringList{QStringLiteral("-f"), QStringLiteral("-q"), QStringLiteral("-K")} +
                   options + QStringList(m_path));
}

bool BtrfsImage::mount(const QString &options)
{
    QString all = QStringLiteral("loop,nodiscard");
    if (!options.isEmpty())
        all += QLatin1Char(',') + options;
    m_isMounted = run("mount", {QStringLiteral("-t"), QStringLiteral("btrfs"), QStringLiteral("-o"),
                                all, m_path, m_mountPoint});
    return m_isMounted;
}

bool BtrfsImage::unmount()
{
    m_isMounted = !run("umount", {m_mountPoint});
    return !m_isMounted;
}

bool BtrfsImage::write(const QString &name, const QByteArray &bytes) const
{
    return QDir().mkpath(QFileInfo(inside(name)).path()) && diskimages::write(inside(name), bytes);
}

bool BtrfsImage::writeInPieces(const QString &first, const QString &second, const QByteArray &bytes,
                               int piece) const
{
    const auto open = [this](const QString &name) {
        return QDir().mkpath(QFileInfo(inside(name)).path())
                   ? ::open(QFile::encodeName(inside(name)).constData(),
                            O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)
                   : -1;
    };
    const int files[] = {open(first), open(second)};
    bool isDone = files[0] >= 0 && files[1] >= 0;
    for (int at = 0; isDone && at < bytes.size(); at += piece)
        for (int file : files) {
            const int length = qMin(piece, bytes.size() - at);
            isDone = isDone &&
                     ::pwrite(file, bytes.constData() + at, size_t(length), at) == length &&
                     ::fdatasync(file) == 0;
        }
    for (int file : files)
        if (file >= 0)
            ::close(file);
    return isDone;
}

bool BtrfsImage::remove(const QString &name) const
{
    const QFileInfo info(inside(name));
    return info.isDir() ? QDir(info.filePath()).removeRecursively()
                        : QFile::remove(info.filePath());
}

bool BtrfsImage::sync() const
{
    return run("btrfs", {QStringLiteral("filesystem"), QStringLiteral("sync"), m_mountPoint});
}

bool BtrfsImage::subvolume(const QStringList &command) const
{
    QStringList arguments = {QStringLiteral("subvolume"), command.first()};
    for (const QString &name : command.mid(1))
        arguments.append(inside(name));
    return run("btrfs", arguments);
}
