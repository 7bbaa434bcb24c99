#pragma once

#include "recoveryd/devices/filesystemprobe.h"
#include "recoveryd/devices/image.h"

#include <QJsonArray>
#include <QVector>

namespace services {
namespace recoveryd {

/// One entry of the disk list: a partition, a disk without partitions, or a gap.
struct Device
{
    QString path; ///< "/dev/image0p1"; empty for a gap.
    QString title;
    Volume volume;
    FileSystem fileSystem;
};

/// The images given to the service, as the disks and partitions that a client sees. Image n is
/// "/dev/image<n>", its partitions are "/dev/image<n>p1" and so on. GUI-free and synchronous: every
/// call reads tables and superblocks afresh.
class DeviceCatalog
{
public:
    [[nodiscard]] bool addImage(const QString &path, QString *error);

    /// The groups of the method disk.enumerate.
    QJsonArray groups() const;
    /// Finds a device by its path. Gaps are never found.
    [[nodiscard]] bool find(const QString &devicePath, Device *device, QString *error) const;
    /// The devices of all images, gaps left out.
    QVector<Device> devices() const;

private:
    QVector<Device> devicesOf(int index) const;

    QVector<std::shared_ptr<const Image>> m_images;
};

} // namespace recoveryd
} // namespace services
