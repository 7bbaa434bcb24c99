#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

namespace diskanalyzer {

/// One line of /proc/self/mountinfo.
struct MountEntry
{
    QString deviceNumber; ///< "major:minor", the same for all mounts of one file system.
    QString root;         ///< Directory of the file system that is mounted; "/" unless bound.
    QString mountPoint;
    QString fsType;
    QString source; ///< Device, as "/dev/sda1".
};

/// Lines that are none are left out; the kernel's octal escapes are undone.
QVector<MountEntry> parseMountInfo(const QByteArray &text);

/// `dirs`, and every other path under which the mounts show the same directories or parts of them.
QStringList withMountAliases(const QStringList &dirs, const QVector<MountEntry> &mounts);

/// True if the path is one of these directories or lies below one.
bool isProtectedPath(const QString &path, const QStringList &protectedDirs);

/// The mounts of this process; empty if they cannot be read. Touches none of them, so a dead one
/// does no harm. Any thread.
QVector<MountEntry> readMounts();

} // namespace diskanalyzer
