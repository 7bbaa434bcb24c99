#include "ui/pages/diskanalyzerpage/mountinfo.h"

#include "core/pathutil.h"

#include <QDir>
#include <QFile>

namespace diskanalyzer {

namespace {

// Fields of a line up to the optional ones, and of the part behind the separator.
enum Field { MountId, ParentId, DeviceNumber, Root, MountPoint, Options, FirstOptional };
enum TailField { FsType, Source, TailFields };

bool isOctal(char digit)
{
    return digit >= '0' && digit <= '7';
}

/// Blanks, line feeds and backslashes stand as \040 and the like.
QString unescaped(const QByteArray &field)
{
    QByteArray text;
    text.reserve(field.size());
    for (int i = 0; i < field.size(); ++i) {
        if (field.at(i) == '\\' && i + 3 < field.size() && isOctal(field.at(i + 1)) &&
            isOctal(field.at(i + 2)) && isOctal(field.at(i + 3))) {
            text += static_cast<char>(field.mid(i + 1, 3).toInt(nullptr, 8));
            i += 3;
        } else {
            text += field.at(i);
        }
    }
    return QFile::decodeName(text);
}

/// `path`, which lies inside `from`, as it is called below `to`.
QString rebased(const QString &path, const QString &from, const QString &to)
{
    const QString rest = path.mid(from == QLatin1String("/") ? 0 : from.size());
    return QDir::cleanPath(to + QLatin1Char('/') + rest);
}

/// The mount that a path is on: the deepest, and of several at one place the last.
const MountEntry *mountOf(const QString &path, const QVector<MountEntry> &mounts)
{
    const MountEntry *found = nullptr;
    for (const MountEntry &mount : mounts) {
        if (core::isInside(path, mount.mountPoint) &&
            (!found || mount.mountPoint.size() >= found->mountPoint.size()))
            found = &mount;
    }
    return found;
}

} // namespace

QVector<MountEntry> parseMountInfo(const QByteArray &text)
{
    QVector<MountEntry> mounts;
    for (const QByteArray &line : text.split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        const int separator = fields.indexOf("-", FirstOptional);
        if (separator < 0 || fields.size() < separator + 1 + TailFields)
            continue;
        MountEntry mount;
        mount.deviceNumber = QString::fromLatin1(fields.at(DeviceNumber));
        mount.root = unescaped(fields.at(Root));
        mount.mountPoint = unescaped(fields.at(MountPoint));
        mount.fsType = QString::fromLatin1(fields.at(separator + 1 + FsType));
        mount.source = unescaped(fields.at(separator + 1 + Source));
        mounts.append(mount);
    }
    return mounts;
}

QStringList withMountAliases(const QStringList &dirs, const QVector<MountEntry> &mounts)
{
    QStringList all;
    for (const QString &dir : dirs) {
        // A relative or empty path would match by accident.
        if (!dir.startsWith(QLatin1Char('/')))
            continue;
        const QString path = QDir::cleanPath(dir);
        all.append(path);
        const MountEntry *own = mountOf(path, mounts);
        if (!own)
            continue;
        const QString inFs = rebased(path, own->mountPoint, own->root);
        for (const MountEntry &other : mounts) {
            if (other.deviceNumber != own->deviceNumber)
                continue;
            if (core::isInside(inFs, other.root))
                all.append(rebased(inFs, other.root, other.mountPoint));
            else if (core::isInside(other.root, inFs))
                all.append(other.mountPoint);
        }
    }
    all.removeDuplicates();
    return all;
}

bool isProtectedPath(const QString &path, const QStringList &protectedDirs)
{
    for (const QString &dir : protectedDirs) {
        if (core::isInside(path, dir))
            return true;
    }
    return false;
}

QVector<MountEntry> readMounts()
{
    QFile file(QStringLiteral("/proc/self/mountinfo"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return parseMountInfo(file.readAll());
}

} // namespace diskanalyzer
