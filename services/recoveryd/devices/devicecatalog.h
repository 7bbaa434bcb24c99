#pragma once

#include "recoveryd/devices/deviceidentity.h"
#include "recoveryd/devices/filesystemprobe.h"
#include "recoveryd/devices/image.h"

#include <QJsonArray>
#include <QVector>

namespace services {
namespace recoveryd {

/// One entry of the disk list: a partition, a whole disk, or a gap.
struct Device
{
    enum class Kind { Partition, Disk, Gap };

    QString path; ///< "/dev/image0p1"
    QString title;
    Volume volume;
    FileSystem fileSystem;
    Kind kind = Kind::Partition;
    QString serial; ///< Of its disk; empty if it has none.
};

/// The images given to the service, as the disks and partitions that a client sees. Image n is
/// "/dev/image<n>", its partitions are "/dev/image<n>p1", gaps between them "/dev/image<n>g1" and
/// so on. GUI-free and synchronous: every call reads tables and superblocks afresh. Any thread,
/// once the images are added.
class DeviceCatalog
{
public:
    [[nodiscard]] bool addImage(const QString &path, QString *error);

    /// The groups of the method disk.enumerate.
    QJsonArray groups() const;
    /// Finds a device by its path.
    [[nodiscard]] bool find(const QString &devicePath, Device *device, QString *error) const;
    /// Finds the device that a session has scanned, under whatever path it has now. The error tells
    /// if it is there but has changed.
    [[nodiscard]] bool findAgain(const DeviceMark &mark, Device *device, QString *error) const;
    /// The partitions of all images, and the images without any.
    QVector<Device> devices() const;

private:
    QVector<Device> devicesOf(int index) const;

    QVector<std::shared_ptr<const Image>> m_images;
};

} // namespace recoveryd
} // namespace services
