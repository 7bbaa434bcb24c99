#include "recoveryd/devices/devicecatalog.h"

#include "common/text.h"
#include "recoveryd/devices/partitiontable.h"

#include <QFileInfo>
#include <QJsonObject>

namespace services {
namespace recoveryd {

namespace {

// Alignment leaves a MiB or two between partitions; that is no room worth showing.
constexpr qint64 kSmallestGap = 8 * 1024 * 1024;

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
    const bool isGap = device.path.isEmpty();
    const qint64 total = fileSystem.size > 0 ? fileSystem.size : device.volume.size();
    const qint64 used = isGap ? device.volume.size() : qMax(qint64(0), fileSystem.used);
    const QString path = isGap ? QStringLiteral("未分配") : device.path;
    // In doubles, since sizes out of a damaged superblock may be huge.
    const int usage = isGap || total <= 0 ? 0 : int(100.0 * double(used) / double(total));
    return {{QStringLiteral("title"), device.title},
            {QStringLiteral("pathAndFs"), path + QStringLiteral("  ") + typeWord(fileSystem)},
            {QStringLiteral("used"), sizeText(used)},
            {QStringLiteral("total"), isGap ? QString() : sizeText(total)},
            {QStringLiteral("mountPoint"), QStringLiteral("未挂载")},
            {QStringLiteral("usage"), qBound(0, usage, 100)},
            {QStringLiteral("selected"), isSelected},
            {QStringLiteral("dashed"), isGap}};
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
    Device whole{diskPath(index), QString(), disk, probeFileSystem(disk)};
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
        const Volume volume(image, partition.start, partition.size);
        const FileSystem fileSystem = probeFileSystem(volume);
        devices.append({QStringLiteral("%1p%2").arg(whole.path).arg(partition.number),
                        titleOf(fileSystem, partition.name), volume, fileSystem});
    }
    const QVector<Partition> gaps = gapsBetween(partitions, image->size(), kSmallestGap);
    for (const Partition &gap : gaps)
        devices.append({QString(), QStringLiteral("空闲空间"), Volume(image, gap.start, gap.size),
                        FileSystem()});
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
            if (!device.path.isEmpty())
                all.append(device);
    }
    return all;
}

bool DeviceCatalog::find(const QString &devicePath, Device *device, QString *error) const
{
    const QVector<Device> all = devices();
    for (const Device &candidate : all) {
        if (candidate.path == devicePath) {
            *device = candidate;
            return true;
        }
    }
    if (error)
        *error = QStringLiteral("没有设备 %1").arg(devicePath);
    return false;
}

} // namespace recoveryd
} // namespace services
