#include "core/controllers/recoverytarget.h"

#include "core/pathutil.h"
#include "ui/common/utils/formatutils.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/statvfs.h>

namespace core {
namespace controllers {

namespace {

// FAT32 keeps a file's length in 32 bits.
constexpr qint64 kFatFileLimit = Q_INT64_C(4) * 1024 * 1024 * 1024;
constexpr int kMaxDeviceDepth = 8; // of devices made of devices

/// The kernel writes blanks, tabs, line ends and backslashes as three octal digits.
QString unescaped(const QByteArray &field)
{
    QByteArray bytes;
    for (int i = 0; i < field.size(); ++i) {
        bool isOctal = false;
        const int code = field.at(i) == '\\' ? field.mid(i + 1, 3).toInt(&isOctal, 8) : 0;
        bytes.append(isOctal ? static_cast<char>(code) : field.at(i));
        if (isOctal)
            i += 3;
    }
    return QFile::decodeName(bytes);
}

bool isPartitionOf(const QString &part, const QString &disk)
{
    if (disk.isEmpty() || !part.startsWith(disk))
        return false;
    QString number = part.mid(disk.size());
    // "sda1", but "nvme0n1p1": a name that ends in a digit needs a letter between.
    if (disk.at(disk.size() - 1).isDigit()) {
        if (!number.startsWith(QLatin1Char('p')))
            return false;
        number.remove(0, 1);
    }
    bool isNumber = false;
    number.toUInt(&isNumber);
    return isNumber;
}

/// The device under the name that it has here and under its plain one ("/dev/mapper/home",
/// "/dev/dm-0"), and what an encrypted or logical volume lies on.
void collectDevices(const QString &device, int depth, QStringList *found)
{
    const QString canonical = QFileInfo(device).canonicalFilePath();
    const QString plain = canonical.isEmpty() ? device : canonical;
    if (found->contains(plain))
        return;
    found->append(plain);
    if (device != plain)
        found->append(device);
    if (depth == 0 || !plain.startsWith(QLatin1String("/dev/")))
        return;
    const QString name = QFileInfo(plain).fileName();
    const QDir slaves(QStringLiteral("/sys/class/block/%1/slaves").arg(name));
    const QStringList names = slaves.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    for (const QString &slave : names)
        collectDevices(QStringLiteral("/dev/") + slave, depth - 1, found);
}

QString nearestExisting(const QString &path)
{
    QString place = QDir::cleanPath(path);
    while (!QFileInfo::exists(place)) {
        const QString parent = QFileInfo(place).path();
        if (parent == place)
            break;
        place = parent;
    }
    const QString canonical = QFileInfo(place).canonicalFilePath();
    return canonical.isEmpty() ? place : canonical;
}

} // namespace

QVector<MountEntry> parseMountInfo(const QByteArray &text)
{
    QVector<MountEntry> mounts;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines) {
        // id, parent, major:minor, root, mount point, options, any number of fields, "-",
        // file system, source, options
        const QList<QByteArray> fields = line.split(' ');
        const int dash = fields.indexOf("-", 6);
        if (dash < 0 || fields.size() < dash + 3)
            continue;
        MountEntry mount;
        mount.mountPoint = unescaped(fields.at(4));
        mount.fileSystem = unescaped(fields.at(dash + 1));
        mount.source = unescaped(fields.at(dash + 2));
        mounts.append(mount);
    }
    return mounts;
}

MountEntry mountOf(const QString &path, const QVector<MountEntry> &mounts)
{
    MountEntry best;
    for (const MountEntry &mount : mounts) {
        if (mount.mountPoint.size() >= best.mountPoint.size() && isInside(path, mount.mountPoint))
            best = mount;
    }
    return best;
}

bool devicesOverlap(const QString &a, const QString &b)
{
    if (a.isEmpty() || b.isEmpty())
        return false;
    return a == b || isPartitionOf(a, b) || isPartitionOf(b, a);
}

QStringList recoveryTargetWarnings(const RecoveryDemand &demand, const RecoveryTargetFacts &facts)
{
    using ui::common::utils::formatByteSize;
    QStringList warnings;
    for (const QString &device : facts.devices) {
        if (!devicesOverlap(device, demand.scannedDevice))
            continue;
        warnings << QStringLiteral("输出目录位于被扫描的设备上（%1，挂载于 %2）。写入会覆盖尚未恢复"
                                   "的数据，请改用其他磁盘。")
                        .arg(device, facts.mountPoint);
        break;
    }
    if (facts.freeBytes >= 0 && facts.freeBytes < demand.totalBytes)
        warnings << QStringLiteral("目标位置剩余空间 %1，少于所选文件的 %2，部分文件将无法写出。")
                        .arg(formatByteSize(facts.freeBytes), formatByteSize(demand.totalBytes));
    const bool isFat =
        facts.fileSystem == QLatin1String("vfat") || facts.fileSystem == QLatin1String("msdos");
    if (isFat && demand.largestBytes >= kFatFileLimit)
        warnings << QStringLiteral("目标文件系统是 FAT32，单个文件必须小于 4 GB，而所选文件中最大的"
                                   "有 %1，该文件将无法写出。")
                        .arg(formatByteSize(demand.largestBytes));
    return warnings;
}

QString buildRecoveryOutputDir(const QString &base, const QDateTime &now,
                               const std::function<bool(const QString &)> &exists)
{
    const QString wanted =
        QDir(QDir::cleanPath(base.trimmed()))
            .filePath(
                QStringLiteral("文件恢复_%1").arg(now.toString(QStringLiteral("yyyyMMdd_HHmmss"))));
    QString path = wanted;
    for (int counter = 1; exists(path); ++counter)
        path = QStringLiteral("%1_%2").arg(wanted).arg(counter);
    return path;
}

bool pathIsTaken(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

RecoveryTargetFacts probeRecoveryTarget(const QString &base)
{
    RecoveryTargetFacts facts;
    facts.outputDir = buildRecoveryOutputDir(base, QDateTime::currentDateTime(), &pathIsTaken);
    const QString place = nearestExisting(base.trimmed());
    QFile mountInfo(QStringLiteral("/proc/self/mountinfo"));
    if (mountInfo.open(QIODevice::ReadOnly)) {
        const MountEntry mount = mountOf(place, parseMountInfo(mountInfo.readAll()));
        facts.mountPoint = mount.mountPoint;
        facts.fileSystem = mount.fileSystem;
        if (mount.source.startsWith(QLatin1Char('/')))
            collectDevices(mount.source, kMaxDeviceDepth, &facts.devices);
    }
    struct statvfs space;
    if (::statvfs(QFile::encodeName(place).constData(), &space) == 0)
        facts.freeBytes = static_cast<qint64>(space.f_bavail) * static_cast<qint64>(space.f_frsize);
    return facts;
}

} // namespace controllers
} // namespace core
