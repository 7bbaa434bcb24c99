#include "recoveryd/devices/blockdevices.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace services::recoveryd {

namespace {

constexpr qint64 kSysfsSector = 512; // whatever the device's own sectors are
constexpr qint64 kMaxText = 64 * 1024;
constexpr int kMaxDepth = 8;

bool isMapping(const QString &name)
{
    return name.startsWith(QLatin1String("dm-")) || name.startsWith(QLatin1String("md"));
}

/// Memory, loop devices (the live system's own parts) and optical drives.
bool isLeftOut(const QString &name)
{
    for (const char *prefix : {"loop", "ram", "zram", "sr", "fd", "mtdblock", "nullb"})
        if (name.startsWith(QLatin1String(prefix)))
            return true;
    return false;
}

QStringList namesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

} // namespace

QString BlockDevices::read(const QString &path) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.read(kMaxText)).trimmed();
}

/// Disks are directly in "block", partitions in the folder of their disk.
QString BlockDevices::folderOf(const QString &name) const
{
    const QString folder = m_paths.sys + QStringLiteral("/class/block/") + name;
    return QFileInfo::exists(folder) ? folder : m_paths.sys + QStringLiteral("/block/") + name;
}

QVector<BlockDisk> BlockDevices::disks() const
{
    QVector<BlockDisk> disks;
    const QStringList names = namesIn(m_paths.sys + QStringLiteral("/block"));
    for (const bool wantsMappings : {false, true}) {
        for (const QString &name : names) {
            if (isLeftOut(name) || isMapping(name) != wantsMappings)
                continue;
            const BlockDisk disk = diskOf(name);
            if (disk.size > 0)
                disks.append(disk);
        }
    }
    return disks;
}

BlockDisk BlockDevices::diskOf(const QString &name) const
{
    const QString folder = m_paths.sys + QStringLiteral("/block/") + name + QLatin1Char('/');
    BlockDisk disk;
    disk.name = name;
    disk.size = read(folder + QStringLiteral("size")).toLongLong() * kSysfsSector;
    disk.deviceNumber = read(folder + QStringLiteral("dev"));
    const QStringList children = namesIn(folder);
    for (const QString &child : children) {
        const QString part = folder + child + QLatin1Char('/');
        const int number = read(part + QStringLiteral("partition")).toInt();
        if (number <= 0)
            continue;
        disk.partitions.append({child, number,
                                read(part + QStringLiteral("start")).toLongLong() * kSysfsSector,
                                read(part + QStringLiteral("size")).toLongLong() * kSysfsSector,
                                read(part + QStringLiteral("dev"))});
    }
    std::sort(disk.partitions.begin(), disk.partitions.end(),
              [](const BlockPartition &a, const BlockPartition &b) { return a.number < b.number; });
    disk.title = titleOf(disk);
    disk.serial = serialOf(disk);
    return disk;
}

QString BlockDevices::titleOf(const BlockDisk &disk) const
{
    const QString folder = m_paths.sys + QStringLiteral("/block/") + disk.name + QLatin1Char('/');
    const QString mapping = read(folder + QStringLiteral("dm/name"));
    if (!mapping.isEmpty()) {
        const bool isEncrypted =
            read(folder + QStringLiteral("dm/uuid")).startsWith(QLatin1String("CRYPT-"));
        return (isEncrypted ? QStringLiteral("已解锁的加密卷 %1") : QStringLiteral("逻辑卷 %1"))
            .arg(mapping);
    }
    if (isMapping(disk.name))
        return QStringLiteral("磁盘阵列 %1").arg(disk.name);
    QString model = udevProperty(disk.deviceNumber, QStringLiteral("ID_MODEL"))
                        .replace(QLatin1Char('_'), QLatin1Char(' '));
    if (model.isEmpty())
        model = read(folder + QStringLiteral("device/model"));
    const QString vendor = read(folder + QStringLiteral("device/vendor"));
    // Some drives have a number in the place of their maker.
    if (!vendor.isEmpty() && vendor != QLatin1String("ATA") &&
        !vendor.startsWith(QLatin1String("0x")) && !model.startsWith(vendor))
        model.prepend(vendor + QLatin1Char(' '));
    model = model.simplified();
    if (model.isEmpty())
        model = QStringLiteral("磁盘 %1").arg(disk.name);
    // Clients tell the kind of a disk by its title.
    const bool isSolid = read(folder + QStringLiteral("queue/rotational")) == QLatin1String("0");
    if (isSolid && !model.contains(QLatin1String("SSD"), Qt::CaseInsensitive) &&
        !model.contains(QLatin1String("NVMe"), Qt::CaseInsensitive))
        model += QLatin1String(" SSD");
    return model;
}

QString BlockDevices::serialOf(const BlockDisk &disk) const
{
    const QString folder = m_paths.sys + QStringLiteral("/block/") + disk.name + QLatin1Char('/');
    for (const char *file :
         {"dm/uuid", "md/uuid", "wwid", "device/wwid", "serial", "device/serial"}) {
        const QString serial = read(folder + QLatin1String(file)).simplified();
        if (!serial.isEmpty())
            return serial;
    }
    for (const char *key : {"ID_WWN", "ID_SERIAL_SHORT", "ID_SERIAL"}) {
        const QString serial = udevProperty(disk.deviceNumber, QLatin1String(key));
        if (!serial.isEmpty())
            return serial;
    }
    return QString();
}

QString BlockDevices::udevProperty(const QString &deviceNumber, const QString &key) const
{
    const QString prefix = QStringLiteral("E:%1=").arg(key);
    const QStringList lines =
        read(m_paths.udev + QStringLiteral("/b") + deviceNumber).split(QLatin1Char('\n'));
    for (const QString &line : lines)
        if (line.startsWith(prefix))
            return line.mid(prefix.size());
    return QString();
}

QStringList BlockDevices::holdersOf(const QString &name) const
{
    return namesIn(folderOf(name) + QStringLiteral("/holders"));
}

QString BlockDevices::backingFileOf(const QString &name) const
{
    const QString file = read(folderOf(name) + QStringLiteral("/loop/backing_file"));
    return file.isEmpty() ? file : QFileInfo(file).canonicalFilePath();
}

QStringList BlockDevices::stackBelow(const QString &deviceNumber) const
{
    QStringList names;
    const QFileInfo link(m_paths.sys + QStringLiteral("/dev/block/") + deviceNumber);
    const QString folder = link.canonicalFilePath();
    if (!folder.isEmpty())
        addBelow(folder, 0, &names);
    return names;
}

void BlockDevices::addBelow(const QString &folder, int depth, QStringList *names) const
{
    const QString name = QFileInfo(folder).fileName();
    if (depth > kMaxDepth || names->contains(name))
        return;
    names->append(name);
    if (QFileInfo::exists(folder + QStringLiteral("/partition")))
        addBelow(QFileInfo(folder).path(), depth + 1, names);
    const QStringList slaves = namesIn(folder + QStringLiteral("/slaves"));
    for (const QString &slave : slaves)
        addBelow(QFileInfo(folder + QStringLiteral("/slaves/") + slave).canonicalFilePath(),
                 depth + 1, names);
}

} // namespace services::recoveryd
