#include "analyzer/mountpoints.h"

#include "core/pathutil.h"

#include <QStorageInfo>

#include <algorithm>
#include <iterator>

QVector<MountPoint> mountedPoints()
{
    QVector<MountPoint> points;
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    for (const QStorageInfo &volume : volumes)
        if (volume.isValid() && volume.isReady())
            points.append({volume.rootPath(), QString::fromLocal8Bit(volume.device()),
                           QString::fromLatin1(volume.fileSystemType())});
    return points;
}

QVector<MountPoint> mountPointsBelow(const QString &rootPath, const QVector<MountPoint> &all)
{
    QVector<MountPoint> below;
    std::copy_if(all.cbegin(), all.cend(), std::back_inserter(below),
                 [&rootPath](const MountPoint &point) {
                     return point.rootPath != rootPath && core::isInside(point.rootPath, rootPath);
                 });
    return below;
}
