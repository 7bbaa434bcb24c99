#include "recoveryd/devices/devicecatalog.h"

#include "common/text.h"
#include "core/mounttable.h"
#include "recoveryd/devices/partitiontable.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonObject>

#include <algorithm>

namespace services {
namespace recoveryd {

namespace {

// What lies before the first partition by its alignment alone is no room worth showing.
constexpr qint64 kSmallestGap = 1024 * 1024;

QString titleOf(const FileSystem &fileSystem, const QString &tableName)
{
    if (fileSystem.isEncrypted())
        return QStringLiteral("加密卷");
    if (!fileSystem.label.isEmpty() && !fileSystem.isContainer)
        return fileSystem.label;
    if (!tableName.isEmpty())
        return tableName;
    if (fileSystem.type == QLatin1String("swap"))
        return QStringLiteral("Linux Swap");
    if (fileSystem.type == QLatin1String("lvm2_member"))
        return QStringLiteral("LVM 物理卷");
    if (fileSystem.isContainer)
        return QStringLiteral("磁盘阵列成员");
    return fileSystem.isKnown() ? QStringLiteral("文件系统") : QStringLiteral("未识别的分区");
}

/// A word without blanks, which clients split at.
QString typeWord(const FileSystem &fileSystem)
{
    if (!fileSystem.isKnown())
        return QStringLiteral("RAW");
    if (fileSystem.type == QLatin1String("lvm2_member"))
        return QStringLiteral("LVM");
    if (fileSystem.type == QLatin1String("crypto_luks"))
        return QStringLiteral("LUKS");
    if (fileSystem.type == QLatin1String("linux_raid_member"))
        return QStringLiteral("RAID");
    return fileSystem.type.toUpper();
}

QJsonObject entryOf(const Device &device, bool isSelected)
{
    const FileSystem &fileSystem = device.fileSystem;
    const bool isGap = device.kind == Device::Kind::Gap;
    const qint64 total = fileSystem.size > 0 ? fileSystem.size : device.volume.size();
    const qint64 used = isGap ? device.volume.size() : qMax(qint64(0), fileSystem.used);
    // In doubles, since sizes out of a damaged superblock may be huge.
    const int usage = isGap || total <= 0 ? 0 : int(100.0 * double(used) / double(total));
    const QStringList mounts = isGap ? QStringList() : mountPointsOf(device);
    return {
        {QStringLiteral("title"), device.title},
        {QStringLiteral("pathAndFs"), device.path + QStringLiteral("  ") + typeWord(fileSystem)},
        {QStringLiteral("used"), sizeText(used)},
        {QStringLiteral("total"), isGap ? QString() : sizeText(total)},
        {QStringLiteral("mountPoint"),
         mounts.isEmpty() ? QStringLiteral("未挂载") : mounts.first()},
        {QStringLiteral("usage"), qBound(0, usage, 100)},
        {QStringLiteral("selected"), isSelected},
        {QStringLiteral("dashed"), isGap}};
}

QVector<Partition> tableOf(const BlockDisk &block, const QVector<Partition> &read)
{
    if (block.partitions.isEmpty())
        return read;
    // The kernel knows more kinds of tables, but not the names in them.
    QVector<Partition> table;
    for (const BlockPartition &known : block.partitions) {
        QString name;
        for (const Partition &partition : read)
            if (partition.start == known.start)
                name = partition.name;
        table.append({known.number, known.start, known.size, name});
    }
    return table;
}

} // namespace

QString DeviceCatalog::Disk::partitionPath(int number) const
{
    const bool endsInDigit = path.at(path.size() - 1).isDigit();
    return path + (endsInDigit ? QStringLiteral("p") : QString()) + QString::number(number);
}

QString DeviceCatalog::Disk::gapPath(int number) const
{
    // "sdag1" would be the first partition of a thirty-third drive.
    return path + (isBlock() ? QStringLiteral(".g") : QStringLiteral("g")) +
           QString::number(number);
}

bool DeviceCatalog::addImage(const QString &path, QString *error)
{
    const std::shared_ptr<const Image> image = Image::open(path, error);
    if (image)
        m_images.append(image);
    return image != nullptr;
}

void DeviceCatalog::offerBlockDevices(const BlockDevices::Paths &paths)
{
    m_block = std::make_shared<const BlockDevices>(paths);
}

QVector<DeviceCatalog::Disk> DeviceCatalog::disks() const
{
    QVector<Disk> disks;
    for (int i = 0; i < m_images.size(); ++i) {
        Disk disk;
        disk.path = QStringLiteral("/dev/image%1").arg(i);
        disk.image = m_images.at(i);
        disk.title = QFileInfo(disk.image->path()).fileName();
        disks.append(disk);
    }
    const QVector<BlockDisk> blocks = m_block ? m_block->disks() : QVector<BlockDisk>();
    for (const BlockDisk &block : blocks) {
        Disk disk;
        disk.path = QStringLiteral("/dev/") + block.name;
        disk.title = block.title;
        disk.block = block;
        disk.image = Image::open(m_block->pathOf(block.name), &disk.openError);
        disks.append(disk);
    }
    return disks;
}

Device DeviceCatalog::wholeOf(const Disk &disk) const
{
    Device whole;
    whole.kind = Device::Kind::Disk;
    whole.path = disk.path;
    whole.serial = disk.block.serial;
    whole.blockName = disk.block.name;
    whole.deviceNumber = disk.block.deviceNumber;
    if (!disk.image) {
        whole.title = QStringLiteral("无法读取的磁盘");
        return whole;
    }
    whole.volume = Volume(disk.image, 0, disk.image->size());
    whole.fileSystem = probeFileSystem(whole.volume);
    return whole;
}

QVector<Device> DeviceCatalog::devicesOf(const Disk &disk) const
{
    Device whole = wholeOf(disk);
    if (!disk.image)
        return {whole};
    QVector<Partition> read;
    QString error;
    if (!whole.fileSystem.isKnown() && !readPartitionTable(whole.volume, &read, &error))
        qWarning() << "[DeviceCatalog]" << disk.image->path() << error;
    const QVector<Partition> table =
        tableOf(disk.block, error.isEmpty() ? read : QVector<Partition>());
    if (whole.fileSystem.isKnown() || table.isEmpty()) {
        // A disk whose table is lost can still be scanned from end to end.
        whole.title = whole.fileSystem.isKnown() ? titleOf(whole.fileSystem, QString())
                      : error.isEmpty()          ? QStringLiteral("整个磁盘")
                                        : QStringLiteral("整个磁盘（分区表损坏）");
        return {whole};
    }
    whole.title = QStringLiteral("整个磁盘");
    return partitionsOf(disk, table) + gapsOf(disk, table) + QVector<Device>{whole};
}

QVector<Device> DeviceCatalog::partitionsOf(const Disk &disk, const QVector<Partition> &table) const
{
    QVector<Device> devices;
    for (const Partition &partition : table) {
        Device device;
        device.path = disk.partitionPath(partition.number);
        device.serial = disk.block.serial;
        device.volume = Volume(disk.image, partition.start, partition.size);
        for (const BlockPartition &known : disk.block.partitions) {
            if (known.number != partition.number)
                continue;
            device.blockName = known.name;
            device.deviceNumber = known.deviceNumber;
            // By its own node: the system caches a disk and its partitions apart, and what was
            // written through the partition is not seen through the disk.
            const auto own = Image::open(m_block->pathOf(known.name), nullptr);
            if (own)
                device.volume = Volume(own, 0, own->size());
        }
        device.fileSystem = probeFileSystem(device.volume);
        device.title = titleOf(device.fileSystem, partition.name);
        devices.append(device);
    }
    return devices;
}

/// Gaps of at least a MiB, but not the MiB in front that holds the table.
QVector<Device> DeviceCatalog::gapsOf(const Disk &disk, const QVector<Partition> &table) const
{
    QVector<Device> devices;
    const QVector<Partition> gaps = gapsBetween(table, disk.image->size(), kSmallestGap);
    for (const Partition &gap : gaps) {
        if (gap.start == 0 && gap.size <= kSmallestGap)
            continue;
        Device device;
        device.kind = Device::Kind::Gap;
        device.path = disk.gapPath(devices.size() + 1);
        device.title = QStringLiteral("空闲空间");
        device.serial = disk.block.serial;
        device.blockName = disk.block.name;
        device.deviceNumber = disk.block.deviceNumber;
        device.volume = Volume(disk.image, gap.start, gap.size);
        devices.append(device);
    }
    return devices;
}

QJsonArray DeviceCatalog::groups() const
{
    QJsonArray groups;
    bool hasSelected = false;
    const QVector<Disk> all = disks();
    for (const Disk &disk : all) {
        QJsonArray entries;
        const QVector<Device> devices = devicesOf(disk);
        for (const Device &device : devices) {
            const bool isSelected = !hasSelected && device.fileSystem.isExt();
            hasSelected = hasSelected || isSelected;
            entries.append(entryOf(device, isSelected));
        }
        QJsonObject group{{QStringLiteral("diskTitle"), disk.title},
                          {QStringLiteral("partitions"), entries}};
        if (disk.image)
            group.insert(QStringLiteral("diskSize"), sizeText(disk.image->size()));
        groups.append(group);
    }
    return groups;
}

QVector<Device> DeviceCatalog::devices() const
{
    QVector<Device> found;
    const QVector<Disk> all = disks();
    for (const Disk &disk : all) {
        const QVector<Device> devices = devicesOf(disk);
        for (const Device &device : devices)
            if (device.volume.isValid() &&
                (device.kind == Device::Kind::Partition || devices.size() == 1))
                found.append(device);
    }
    return found;
}

bool DeviceCatalog::find(const QString &devicePath, Device *device, QString *error) const
{
    const auto fail = [error](const QString &message) {
        if (error)
            *error = message;
        return false;
    };
    const QVector<Disk> all = disks();
    for (const Disk &disk : all) {
        if (!devicePath.startsWith(disk.path))
            continue;
        const QVector<Device> devices = devicesOf(disk);
        const auto found =
            std::find_if(devices.begin(), devices.end(), [&devicePath](const Device &candidate) {
                return candidate.path == devicePath;
            });
        if (found == devices.end())
            continue;
        if (!found->volume.isValid())
            return fail(disk.openError);
        *device = *found;
        return true;
    }
    return fail(QStringLiteral("没有设备 %1").arg(devicePath));
}

bool DeviceCatalog::findAgain(const DeviceMark &mark, Device *device, QString *error) const
{
    QString changed;
    bool isFound = false;
    const QVector<Disk> all = disks();
    for (const Disk &disk : all) {
        const QVector<Device> devices = devicesOf(disk);
        for (const Device &candidate : devices) {
            if (!candidate.volume.isValid())
                continue;
            QString reason;
            const bool isSame = isSameDevice(mark, candidate, &reason);
            const bool isAtPlace = candidate.volume.image()->path() == mark.imagePath;
            // Of a disk and its copy, the one at the old place.
            if (isSame && (isAtPlace || !isFound)) {
                *device = candidate;
                isFound = true;
            }
            if (isSame && isAtPlace)
                return true;
            if (!isSame && isAtPlace && candidate.path == mark.devicePath)
                changed = reason;
        }
    }
    if (!isFound && error)
        *error = changed.isEmpty() ? QStringLiteral("扫描时的设备 %1 已不可用").arg(mark.devicePath)
                                   : changed;
    return isFound;
}

QStringList mountPointsOf(const Device &device)
{
    QStringList points;
    if (device.deviceNumber.isEmpty())
        return points;
    const QVector<core::Mount> mounts = core::readMountTable();
    for (const core::Mount &mount : mounts)
        // The numbers of a Btrfs mount are not those of its device.
        if (mount.deviceNumber() == device.deviceNumber ||
            mount.source == QFile::encodeName(device.path))
            points.append(QFile::decodeName(mount.mountPoint));
    return points;
}

} // namespace recoveryd
} // namespace services
