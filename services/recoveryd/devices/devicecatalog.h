#pragma once

#include "recoveryd/devices/blockdevices.h"
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

    QString path; ///< "/dev/image0p1", "/dev/sda1"
    QString title;
    Volume volume; ///< Invalid if the device cannot be opened.
    FileSystem fileSystem;
    Kind kind = Kind::Partition;
    QString serial;       ///< Of its disk; empty if it has none.
    QString blockName;    ///< "sda1"; empty for what is in an image. A gap has its disk's.
    QString deviceNumber; ///< "8:1"; empty likewise.
};

/// The disks and partitions that a client sees: the images given to the service, and the machine's
/// block devices where that is asked for. Image n is "/dev/image<n>", its partitions are
/// "/dev/image<n>p1", gaps between them "/dev/image<n>g1" and so on; the gaps of a drive are
/// "/dev/sda.g1". GUI-free and synchronous: every call looks at the machine and reads tables and
/// superblocks afresh, so a disk that was plugged in is there. Any thread, once it is set up.
class DeviceCatalog
{
public:
    [[nodiscard]] bool addImage(const QString &path, QString *error);
    /// Offers the machine's block devices as well.
    void offerBlockDevices(const BlockDevices::Paths &paths);
    bool hasAnything() const { return !m_images.isEmpty() || m_block; }

    /// The groups of the method disk.enumerate.
    QJsonArray groups() const;
    /// Finds a device by its path; its volume is valid.
    [[nodiscard]] bool find(const QString &devicePath, Device *device, QString *error) const;
    /// Finds the device that a session has scanned, under whatever path it has now. The error tells
    /// if it is there but has changed.
    [[nodiscard]] bool findAgain(const DeviceMark &mark, Device *device, QString *error) const;
    /// All partitions, and the disks without any; those that can be opened.
    QVector<Device> devices() const;
    /// Null if only images are offered.
    const BlockDevices *blockDevices() const { return m_block.get(); }

private:
    struct Disk
    {
        QString path;
        QString title;
        QString openError;
        std::shared_ptr<const Image> image; ///< Null if it cannot be opened.
        BlockDisk block;                    ///< Without a name for an image.

        bool isBlock() const { return !block.name.isEmpty(); }
        QString partitionPath(int number) const;
        QString gapPath(int number) const;
    };

    QVector<Disk> disks() const;
    QVector<Device> devicesOf(const Disk &disk) const;
    Device wholeOf(const Disk &disk) const;
    QVector<Device> partitionsOf(const Disk &disk, const QVector<struct Partition> &table) const;
    QVector<Device> gapsOf(const Disk &disk, const QVector<struct Partition> &table) const;

    QVector<std::shared_ptr<const Image>> m_images;
    std::shared_ptr<const BlockDevices> m_block;
};

/// Places where the device's file system is mounted.
QStringList mountPointsOf(const Device &device);

} // namespace recoveryd
} // namespace services
