#pragma once

#include <QStringList>
#include <QVector>

namespace services::recoveryd {

/// One partition that the kernel knows.
struct BlockPartition
{
    QString name; ///< "sda1"
    int number = 0;
    qint64 start = 0; ///< Bytes from the start of the disk.
    qint64 size = 0;
    QString deviceNumber; ///< "8:1"
};

/// One disk of the machine: a drive, a logical volume, an opened encrypted volume or an array.
struct BlockDisk
{
    QString name; ///< "sda", "dm-0"
    QString title;
    QString serial; ///< Of the drive or the mapping; empty if it has none.
    qint64 size = 0;
    QString deviceNumber; ///< "8:0"
    QVector<BlockPartition> partitions;
};

/// The machine's block devices as sysfs shows them, and names from udev's database where it is
/// there. Reads small files only, never the devices. Any thread.
class BlockDevices
{
public:
    /// Where the system's folders are; parameters for the sake of tests.
    struct Paths
    {
        QString sys = QStringLiteral("/sys");
        QString dev = QStringLiteral("/dev");
        QString udev = QStringLiteral("/run/udev/data");
    };

    explicit BlockDevices(const Paths &paths)
        : m_paths(paths)
    {}

    /// Drives first, then mappings and arrays; without loop and memory devices, and without drives
    /// that hold no medium.
    QVector<BlockDisk> disks() const;
    /// "/dev/sda1"
    QString pathOf(const QString &name) const { return m_paths.dev + QLatin1Char('/') + name; }
    /// What is built on a disk or partition: names of mappings and arrays.
    QStringList holdersOf(const QString &name) const;
    /// The file behind a loop device; empty for anything else.
    QString backingFileOf(const QString &name) const;
    /// The disks that a device stands on: for a partition its disk, for a mapping what is below,
    /// and so on down; itself included. `deviceNumber` is like "8:1".
    QStringList stackBelow(const QString &deviceNumber) const;

private:
    QString folderOf(const QString &name) const;
    QString read(const QString &path) const;
    QString udevProperty(const QString &deviceNumber, const QString &key) const;
    BlockDisk diskOf(const QString &name) const;
    QString titleOf(const BlockDisk &disk) const;
    QString serialOf(const BlockDisk &disk) const;
    void addBelow(const QString &folder, int depth, QStringList *names) const;

    Paths m_paths;
};

} // namespace services::recoveryd
