#include "recoveryd/forensics/filelayout.h"

#include "recoveryd/ext/extlookup.h"
#include "recoveryd/forensics/fiemap.h"

#include <QFileInfo>

namespace services {
namespace recoveryd {

namespace {

bool fail(QString *error, const QString &message)
{
    *error = message;
    return false;
}

/// Whether the path names something inside the device; then `inside` is the path there.
bool isInsideOf(const Device &device, const QString &filePath, QString *inside)
{
    const QString image = device.volume.image()->path();
    for (const QString &name : {device.path, image, QFileInfo(image).fileName()}) {
        if (filePath.startsWith(name + QStringLiteral(":/"))) {
            *inside = filePath.mid(name.size() + 1);
            return true;
        }
    }
    return false;
}

bool layoutInImage(const Device &device, const QString &path, FileLayout *layout, QString *error)
{
    ExtVolume ext;
    ExtInode inode;
    if (!ext.open(device.volume, error) || !lookUp(ext, path, &inode, error))
        return false;
    if (!inode.isRegular())
        return fail(error, QStringLiteral("%1 不是普通文件").arg(path));
    if (!readBlockRuns(ext, inode, kMaxSnapshotBlocks, &layout->runs, error))
        return false;
    layout->devicePath = device.path;
    layout->imagePath = device.volume.image()->path();
    layout->volumeStart = device.volume.start();
    layout->blockSize = ext.superblock().blockSize;
    layout->fileSize = inode.size;
    layout->inodeNumber = inode.number;
    layout->inode = inodeMark(inode.raw);
    return true;
}

} // namespace

bool findLayout(const DeviceCatalog &catalog, const QString &filePath, FileLayout *layout,
                QString *error)
{
    bool isNamed = false;
    const QVector<Device> devices = catalog.devices();
    for (const Device &device : devices) {
        QString inside;
        if (!isInsideOf(device, filePath, &inside))
            continue;
        isNamed = true;
        // An image's name stands for its first partition that can be looked into.
        if (device.fileSystem.isExt())
            return layoutInImage(device, inside, layout, error);
    }
    if (isNamed)
        return fail(error, QStringLiteral("只支持 ext2/3/4 文件系统内的文件"));
    if (!filePath.startsWith(QLatin1Char('/')))
        return fail(error, QStringLiteral("请输入文件的绝对路径"));
    return layoutOnHost(filePath, kMaxSnapshotBlocks, layout, error);
}

bool openVolume(const DeviceCatalog &catalog, const FileLayout &layout, Volume *volume,
                QString *error)
{
    const QVector<Device> devices = catalog.devices();
    for (const Device &device : devices) {
        if (device.volume.image()->path() == layout.imagePath &&
            device.volume.start() == layout.volumeStart) {
            *volume = device.volume;
            return true;
        }
    }
    const std::shared_ptr<const Image> image = Image::open(layout.imagePath, error);
    if (!image)
        return false;
    *volume = Volume(image, layout.volumeStart, image->size());
    return true;
}

} // namespace recoveryd
} // namespace services
