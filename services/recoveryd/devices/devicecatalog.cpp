#include "recoveryd/devices/devicecatalog.h"

#include "common/text.h"
#include "recoveryd/devices/partitiontable.h"

#include <QFileInfo>
#include <QJsonObject>

namespace services {
namespace recoveryd {

namespace {

// What lies before the first partition by its alignment alone is no room worth showing.
constexpr qint64 kSmallestGap = 1024 * 1024;

QString diskPath(int index)
{
    return QStringLiteral("/dev/image%1").arg(index);
}

QString titleOf(const FileSystem &fileSystem, const QString &tableName)
{
    if (!fileSystem.label.isEmpty())
        return fileSystem.label;
    if (!tableName.isEmpty())
        return tableName;
    if (fileSystem.type == QLatin1String("swap"))
        return QStringLiteral("Linux Swap");
    return fileSystem.isKnown() ? QStringLiteral("文件系统") : QStringLiteral("未识别的分区");
}

QString typeWord(const FileSystem &fileSystem)
{
    return fileSystem.isKnown() ? fileSystem.type.toUpper() : QStringLiteral("RAW");
}

QJsonObject entryOf(const Device &device, bool isSelected)
{
    const FileSystem &fileSystem = device.fileSystem;
    const bool isGap = device.kind == Device::Kind::Gap;
    const qint64 total = fileSystem.size > 0 ? fileSystem.size : device.volume.size();
    const qint64 used = isGap ? device.volume.size() : qMax(qint64(0), fileSystem.used);
    // In doubles, since sizes out of a damaged superblock may be huge.
    const int usage = isGap || total <= 0 ? 0 : int(100.0 * double(used) / double(total));
    return {
        {QStringLiteral("title"), device.title},
        {QStringLiteral("pathAndFs"), device.path + QStringLiteral("  ") + typeWord(fileSystem)},
        {QStringLiteral("used"), sizeText(used)},
        {QStringLiteral("total"), isGap ? QString() : sizeText(total)},
        {QStringLiteral("mountPoint"), QStringLiteral("未挂载")},
        {QStringLiteral("usage"), qBound(0, usage, 100)},
        {QStringLiteral("selected"), isSelected},
        {QStringLiteral("dashed"), isGap}};
}

/// Gaps of at least a MiB, but not the MiB in front that holds the table.
QVector<Partition> gapsOf(const QVector<Partition> &partitions, qint64 diskSize)
{
    QVector<Partition> gaps = gapsBetween(partitions, diskSize, kSmallestGap);
    if (!gaps.isEmpty() && gaps.first().start == 0 && gaps.first().size <= kSmallestGap)
        gaps.removeFirst();
    return gaps;
}

} // namespace

bool DeviceCatalog::addImage(const QString &path, QString *error)
{
    const std::shared_ptr<const Image> image = Image::open(path, error);
    if (image)
        m_images.append(image);
    return image != nullptr;
}

QVector<Device> DeviceCatalog::devicesOf(int index) const
{
    const std::shared_ptr<const Image> image = m_images.at(index);
    const Volume disk(image, 0, image->size());
    Device whole;
    whole.kind = Device::Kind::Disk;
    whole.path = diskPath(index);
    whole.volume = disk;
    whole.fileSystem = probeFileSystem(disk);
    QVector<Partition> partitions;
    QString error;
    if (!whole.fileSystem.isKnown() && !readPartitionTable(disk, &partitions, &error))
        qWarning() << "[DeviceCatalog]" << image->path() << error;
    if (whole.fileSystem.isKnown() || partitions.isEmpty() || !error.isEmpty()) {
        // A disk whose table is lost can still be scanned from end to end.
        whole.title = whole.fileSystem.isKnown() ? titleOf(whole.fileSystem, QString())
                      : error.isEmpty()          ? QStringLiteral("整个磁盘")
                                        : QStringLiteral("整个磁盘（分区表损坏）");
        return {whole};
    }

    QVector<Device> devices;
    for (const Partition &partition : qAsConst(partitions)) {
        Device device;
        device.path = QStringLiteral("%1p%2").arg(whole.path).arg(partition.number);
        device.volume = Volume(image, partition.start, partition.size);
        device.fileSystem = probeFileSystem(device.volume);
        device.title = titleOf(device.fileSystem, partition.name);
        devices.append(device);
    }
    int number = 0;
    const QVector<Partition> gaps = gapsOf(partitions, image->size());
    for (const Partition &gap : gaps) {
        Device device;
        device.kind = Device::Kind::Gap;
        device.path = QStringLiteral("%1g%2").arg(whole.path).arg(++number);
        device.title = QStringLiteral("空闲空间");
        device.volume = Volume(image, gap.start, gap.size);
        devices.append(device);
    }
    whole.title = QStringLiteral("整个磁盘");
    devices.append(whole);
    return devices;
}

QJsonArray DeviceCatalog::groups() const
{
    QJsonArray groups;
    bool hasSelected = false;
    for (int i = 0; i < m_images.size(); ++i) {
        QJsonArray entries;
        const QVector<Device> devices = devicesOf(i);
        for (const Device &device : devices) {
            const bool isSelected = !hasSelected && device.fileSystem.isExt();
            hasSelected = hasSelected || isSelected;
            entries.append(entryOf(device, isSelected));
        }
        // Without the size: clients show a capacity of their own beside the name.
        const QString title = QFileInfo(m_images.at(i)->path()).fileName();
        groups.append(QJsonObject{{QStringLiteral("diskTitle"), title},
                                  {QStringLiteral("partitions"), entries}});
    }
    return groups;
}

QVector<Device> DeviceCatalog::devices() const
{
    QVector<Device> all;
    for (int i = 0; i < m_images.size(); ++i) {
        const QVector<Device> devices = devicesOf(i);
        for (const Device &device : devices)
            if (device.kind == Device::Kind::Partition || devices.size() == 1)
                all.append(device);
    }
    return all;
}

bool DeviceCatalog::findAgain(const DeviceMark &mark, Device *device, QString *error) const
{
    QString changed;
    bool isFound = false;
    for (int i = 0; i < m_images.size(); ++i) {
        const QVector<Device> devices = devicesOf(i);
        for (const Device &candidate : devices) {
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
    if (isFound)
        return true;
    *error = changed.isEmpty() ? QStringLiteral("扫描时的设备 %1 已不可用").arg(mark.devicePath)
                               : changed;
    return false;
}

bool DeviceCatalog::find(const QString &devicePath, Device *device, QString *error) const
{
    for (int i = 0; i < m_images.size(); ++i) {
        if (!devicePath.startsWith(diskPath(i)))
            continue;
        const QVector<Device> devices = devicesOf(i);
        for (const Device &candidate : devices) {
            if (candidate.path == devicePath) {
                *device = candidate;
                return true;
            }
        }
    }
    if (error)
        *error = QStringLiteral("没有设备 %1").arg(devicePath);
    return false;
}

} // namespace recoveryd
} // namespace services
