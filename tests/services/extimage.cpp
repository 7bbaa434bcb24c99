#include "extimage.h"

#include "support/diskimages.h"
#include "support/privatemounts.h"

#include <QDir>
#include <QFileInfo>

#include <fcntl.h>
#include <unistd.h>

namespace {

bool run(const char *tool, const QStringList &arguments)
{
    QString error;
    const bool isDone = diskimages::runTool(QString::fromLatin1(tool), arguments, &error);
    if (!isDone)
        qWarning("%s", qPrintable(error));
    return isDone;
}

} // namespace

QString ExtImage::obstacle()
{
    static const bool hasMounts = testsupport::enterPrivateMounts();
    if (::geteuid() != 0 || !hasMounts || !QFile::exists(QStringLiteral("/dev/loop-control")))
        return QStringLiteral("needs root, loop devices and private mounts");
    return QString();
}

ExtImage::ExtImage(const QString &path, const QString &mountPoint)
    : m_path(path)
    , m_mountPoint(mountPoint)
{}

ExtImage::~ExtImage()
{
    if (m_isMounted && !unmount())
        qWarning("%s stays mounted", qPrintable(m_mountPoint));
}

bool ExtImage::format(int sizeMiB, const QStringList &options)
{
    QFile file(m_path);
    return file.open(QIODevice::ReadWrite | QIODevice::Truncate) &&
           file.resize(qint64(sizeMiB) << 20) && formatAgain(options);
}

bool ExtImage::formatAgain(const QStringList &options)
{
    return run("mke2fs", QStringList{QStringLiteral("-q"), QStringLiteral("-F"),
                                     QStringLiteral("-E"), QStringLiteral("nodiscard")} +
                             options + QStringList(m_path));
}

bool ExtImage::mount(const QString &options)
{
    const QString all =
        options.isEmpty() ? QStringLiteral("loop") : QStringLiteral("loop,") + options;
    m_isMounted = run("mount", {QStringLiteral("-o"), all, m_path, m_mountPoint});
    return m_isMounted;
}

bool ExtImage::unmount()
{
    m_isMounted = !run("umount", {m_mountPoint});
    return !m_isMounted;
}

bool ExtImage::remount(const QString &options)
{
    return unmount() && mount(options);
}

bool ExtImage::copyTo(const QString &path) const
{
    QFile::remove(path);
    return QFile::copy(m_path, path);
}

bool ExtImage::write(const QString &name, const QByteArray &bytes) const
{
    return makeFolder(QFileInfo(name).path()) && diskimages::write(inside(name), bytes);
}

bool ExtImage::writeInTurn(const QString &first, const QString &second, const QByteArray &bytes,
                           int piece) const
{
    QFile a(inside(first));
    QFile b(inside(second));
    if (!a.open(QIODevice::WriteOnly) || !b.open(QIODevice::WriteOnly))
        return false;
    for (int at = 0; at < bytes.size(); at += piece)
        for (QFile *file : {&a, &b})
            if (file->write(bytes.mid(at, piece)) < 0 || !file->flush() ||
                ::fdatasync(file->handle()) != 0)
                return false;
    return true;
}

bool ExtImage::makeFolder(const QString &name) const
{
    return QDir(m_mountPoint).mkpath(name);
}

bool ExtImage::remove(const QString &name) const
{
    const QFileInfo info(inside(name));
    return info.isDir() ? QDir(info.filePath()).removeRecursively()
                        : QFile::remove(info.filePath());
}

void ExtImage::sync() const
{
    const int folder = ::open(QFile::encodeName(m_mountPoint).constData(), O_RDONLY | O_CLOEXEC);
    ::syncfs(folder);
    ::close(folder);
}
