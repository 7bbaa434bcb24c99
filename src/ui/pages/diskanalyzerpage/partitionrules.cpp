#include "ui/pages/diskanalyzerpage/partitionrules.h"

#include "core/pathutil.h"
#include "ui/pages/diskanalyzerpage/mountinfo.h"

#include <QDir>
#include <QStorageInfo>
#include <QStringList>

#include <algorithm>

namespace diskanalyzer {

namespace {

// Solid glyphs of Font Awesome.
constexpr ushort kSystemGlyph = 0xF233;
constexpr ushort kHomeGlyph = 0xF015;
constexpr ushort kDataGlyph = 0xF1C0;
constexpr ushort kRemovableGlyph = 0xF7C2;
constexpr ushort kDriveGlyph = 0xF0A0;

const QStringList &hiddenTypes()
{
    static const QStringList kTypes =
        QStringLiteral("tmpfs devtmpfs sysfs proc devpts securityfs cgroup cgroup2 pstore efivarfs "
                       "bpf autofs debugfs mqueue hugetlbfs fusectl configfs rpc_pipefs "
                       "binfmt_misc fuse overlay cifs smbfs nfs nfs4 fuse.sshfs 9p")
            .split(QLatin1Char(' '));
    return kTypes;
}

bool hasHiddenPath(const QString &path)
{
    static const QStringList kPrefixes = {QStringLiteral("/sys"), QStringLiteral("/proc"),
                                          QStringLiteral("/dev"), QStringLiteral("/run")};
    static const QStringList kPaths = {QStringLiteral("/boot"), QStringLiteral("/boot/efi"),
                                       QStringLiteral("/recovery"), QStringLiteral("/snap")};
    if (path.contains(QLatin1String("smb-share:")) || path.contains(QLatin1String("nfs-share:")))
        return true;
    for (const QString &prefix : kPrefixes) {
        if (path.startsWith(prefix))
            return true;
    }
    return kPaths.contains(path);
}

bool isRemovablePath(const QString &path)
{
    return path.startsWith(QLatin1String("/media/")) || path.startsWith(QLatin1String("/mnt/"));
}

bool isHomePath(const QString &path)
{
    return path.startsWith(QLatin1String("/home"));
}

int rank(const QString &path)
{
    if (path == QLatin1String("/"))
        return 0;
    if (path == QLatin1String("/data"))
        return 1;
    return isHomePath(path) ? 2 : 3;
}

/// True if `other` shows all that `volume` shows.
bool covers(const PartitionInfo &other, const PartitionInfo &volume)
{
    return other.device == volume.device && core::isInside(volume.fsRoot, other.fsRoot);
}

} // namespace

bool isLocalVolume(const PartitionInfo &volume)
{
    if (hiddenTypes().contains(volume.fsType) || volume.fsType.startsWith(QLatin1String("fuse.")))
        return false;
    if (volume.device.startsWith(QLatin1String("//")) ||
        volume.device.contains(QLatin1String(":/")))
        return false;
    return !hasHiddenPath(volume.mountPath);
}

QString partitionLabel(const QString &mountPath)
{
    if (mountPath == QLatin1String("/"))
        return QStringLiteral("系统盘");
    if (mountPath == QLatin1String("/data") || isHomePath(mountPath))
        return QStringLiteral("数据盘");
    if (isRemovablePath(mountPath))
        return QDir::cleanPath(mountPath).section(QLatin1Char('/'), -1);
    return mountPath;
}

QString iconGlyphForMount(const QString &mountPath)
{
    if (mountPath == QLatin1String("/"))
        return QChar(kSystemGlyph);
    if (mountPath == QLatin1String("/data"))
        return QChar(kDataGlyph);
    if (isHomePath(mountPath))
        return QChar(kHomeGlyph);
    return QChar(isRemovablePath(mountPath) ? kRemovableGlyph : kDriveGlyph);
}

QVector<PartitionInfo> partitionCards(const QVector<PartitionInfo> &volumes)
{
    QVector<PartitionInfo> shown;
    for (const PartitionInfo &volume : volumes) {
        if (volume.totalBytes > 0 && isLocalVolume(volume))
            shown.append(volume);
    }
    std::stable_sort(shown.begin(), shown.end(),
                     [](const PartitionInfo &a, const PartitionInfo &b) {
                         const int rankA = rank(a.mountPath);
                         const int rankB = rank(b.mountPath);
                         return rankA != rankB ? rankA < rankB : a.mountPath < b.mountPath;
                     });
    QVector<PartitionInfo> cards;
    for (int i = 0; i < shown.size(); ++i) {
        bool needed = true;
        for (int j = 0; j < shown.size() && needed; ++j) {
            const bool wider = covers(shown.at(j), shown.at(i));
            const bool same = wider && covers(shown.at(i), shown.at(j));
            needed = i == j || !wider || (same && i < j);
        }
        if (!needed)
            continue;
        cards.append(shown.at(i));
        cards.last().label = partitionLabel(cards.last().mountPath);
    }
    return cards;
}

int usedPercent(const PartitionInfo &partition)
{
    if (partition.totalBytes <= 0)
        return 0;
    const double share = double(partition.usedBytes) / double(partition.totalBytes);
    return qBound(0, qRound(share * 100), 100);
}

QString partitionTitle(const PartitionInfo &partition)
{
    return QStringLiteral("%1  %2").arg(partition.label, partition.label == partition.mountPath
                                                             ? partition.device
                                                             : partition.mountPath);
}

QVector<PartitionInfo> readPartitions()
{
    QVector<PartitionInfo> volumes;
    for (const MountEntry &mount : readMounts()) {
        PartitionInfo volume;
        volume.mountPath = mount.mountPoint;
        volume.device = mount.source;
        volume.fsType = mount.fsType;
        volume.fsRoot = mount.root;
        if (!isLocalVolume(volume))
            continue;
        const QStorageInfo storage(mount.mountPoint);
        if (!storage.isValid() || !storage.isReady())
            continue;
        // Of several at one place only the last can be seen.
        const auto hidden = [&mount](const PartitionInfo &earlier) {
            return earlier.mountPath == mount.mountPoint;
        };
        volumes.erase(std::remove_if(volumes.begin(), volumes.end(), hidden), volumes.end());
        volume.totalBytes = storage.bytesTotal();
        volume.usedBytes = storage.bytesTotal() - storage.bytesAvailable();
        volumes.append(volume);
    }
    return volumes;
}

} // namespace diskanalyzer
