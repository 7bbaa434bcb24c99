#include "recoveryd/forensics/fiemap.h"

#include "core/descriptor.h"
#include "recoveryd/ext/extvolume.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <vector>

namespace services {
namespace recoveryd {

using core::Descriptor;

namespace {

constexpr quint32 kExtentsPerCall = 256;
// Flags of extents whose physical offset says nothing about where the bytes can be read.
constexpr quint32 kNotReadable = FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC |
                                 FIEMAP_EXTENT_ENCODED | FIEMAP_EXTENT_DATA_ENCRYPTED |
                                 FIEMAP_EXTENT_NOT_ALIGNED | FIEMAP_EXTENT_DATA_INLINE |
                                 FIEMAP_EXTENT_DATA_TAIL;

bool fail(QString *error, const QString &message)
{
    *error = message;
    return false;
}

bool failCode(QString *error, const QString &what)
{
    return fail(error,
                QStringLiteral("%1：%2").arg(what, QString::fromLocal8Bit(std::strerror(errno))));
}

bool appendExtent(const fiemap_extent &extent, FileLayout *layout, QString *error)
{
    if (extent.fe_flags & kNotReadable)
        return fail(error,
                    QStringLiteral("文件的数据没有可直接读取的物理位置（内联、压缩或加密）"));
    if (extent.fe_flags & FIEMAP_EXTENT_UNWRITTEN)
        return true;
    const quint64 block = quint64(layout->blockSize);
    layout->runs.append({qint64(extent.fe_logical / block), qint64(extent.fe_physical / block),
                         qint64((extent.fe_length + block - 1) / block)});
    return true;
}

bool readExtents(int fd, qint64 maxBlocks, FileLayout *layout, QString *error)
{
    // The call's structure ends in an array without a length of its own.
    std::vector<quint64> memory(
        (sizeof(fiemap) + kExtentsPerCall * sizeof(fiemap_extent)) / sizeof(quint64) + 1);
    auto *const map = reinterpret_cast<fiemap *>(memory.data());
    quint64 from = 0;
    for (bool isLast = false; !isLast;) {
        std::fill(memory.begin(), memory.end(), 0);
        map->fm_start = from;
        map->fm_length = FIEMAP_MAX_OFFSET - from;
        map->fm_flags = FIEMAP_FLAG_SYNC;
        map->fm_extent_count = kExtentsPerCall;
        if (::ioctl(fd, FS_IOC_FIEMAP, map) != 0)
            return failCode(error, QStringLiteral("文件系统不提供数据块位置"));
        isLast = map->fm_mapped_extents == 0;
        for (quint32 i = 0; i < map->fm_mapped_extents; ++i) {
            const fiemap_extent &extent = map->fm_extents[i];
            if (!appendExtent(extent, layout, error))
                return false;
            from = extent.fe_logical + extent.fe_length;
            isLast = isLast || (extent.fe_flags & FIEMAP_EXTENT_LAST);
        }
        if (layout->blockCount() > maxBlocks)
            return fail(error, QStringLiteral("文件过大：上限 %1 个块").arg(maxBlocks));
    }
    return true;
}

/// "/dev/sda1" for a device number; empty for file systems that have no block device.
QString devicePathOf(dev_t device)
{
    const QString link =
        QStringLiteral("/sys/dev/block/%1:%2").arg(major(device)).arg(minor(device));
    const QString target = QFileInfo(link).symLinkTarget();
    return target.isEmpty() ? QString() : QStringLiteral("/dev/") + QFileInfo(target).fileName();
}

/// The bytes that the file itself shows, against those on the device.
bool isSameOnDevice(int fd, const Volume &volume, const FileLayout &layout, QString *error)
{
    QByteArray mine(int(layout.blockSize), '\0');
    for (const BlockRun &run : layout.runs) {
        for (qint64 i = 0; i < run.count; ++i) {
            const qint64 at = (run.logical + i) * layout.blockSize;
            const ssize_t length = ::pread(fd, mine.data(), size_t(layout.blockSize), off_t(at));
            const QByteArray theirs =
                volume.read((run.physical + i) * layout.blockSize, layout.blockSize, error);
            if (length < 0 || theirs.isEmpty())
                return false;
            if (std::memcmp(mine.constData(), theirs.constData(), size_t(length)) != 0)
                return fail(error, QStringLiteral("块设备上的内容与文件不一致"));
        }
    }
    return true;
}

} // namespace

bool layoutOnHost(const QString &filePath, qint64 maxBlocks, FileLayout *layout, QString *error)
{
    const Descriptor file(::open(QFile::encodeName(filePath).constData(),
                                 O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    struct stat info = {};
    struct statfs system = {};
    if (file.get() < 0 || ::fstat(file.get(), &info) != 0 || ::fstatfs(file.get(), &system) != 0)
        return failCode(error, QStringLiteral("无法打开 %1").arg(filePath));
    if (!S_ISREG(info.st_mode))
        return fail(error, QStringLiteral("%1 不是普通文件").arg(filePath));
    layout->blockSize = system.f_bsize;
    layout->fileSize = info.st_size;
    layout->inodeNumber = info.st_ino;
    layout->devicePath = layout->imagePath = devicePathOf(info.st_dev);
    if (layout->devicePath.isEmpty())
        return fail(error, QStringLiteral("文件所在的文件系统没有可直接读取的块设备"));
    ::fsync(file.get());
    if (!readExtents(file.get(), maxBlocks, layout, error))
        return false;

    const std::shared_ptr<const Image> device = Image::open(layout->imagePath, error);
    if (!device)
        return false;
    device->dropCache();
    const Volume volume(device, 0, device->size());
    if (!isSameOnDevice(file.get(), volume, *layout, error))
        return false;
    ExtVolume ext;
    if (ext.open(volume, nullptr))
        layout->inode = inodeMark(ext.readInode(quint32(layout->inodeNumber), nullptr));
    return true;
}

} // namespace recoveryd
} // namespace services
