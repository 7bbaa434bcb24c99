#pragma once

#include <QString>
#include <QVector>

/// A mounted file system that is ready for use.
struct MountPoint
{
    QString rootPath;
    QString device;
    QString fileSystem;
};

/// All that QStorageInfo knows. Asks every mounted file system, so a network share whose server is
/// gone may hold up the caller: not for the GUI thread.
QVector<MountPoint> mountedPoints();

/// Those below a directory, other than the directory itself.
QVector<MountPoint> mountPointsBelow(const QString &rootPath, const QVector<MountPoint> &all);
