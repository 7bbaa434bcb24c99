#include "recoveryd/devices/deviceuse.h"

#include "core/pathutil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace services::recoveryd {

namespace {

QString errorText(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

bool fail(QString *error, const QString &message)
{
    *error = message;
    return false;
}

/// A read-only view of a file system that is written elsewhere does not count.
bool isQuiet(const core::Mount &mount)
{
    return mount.superOptions.split(',').contains("ro");
}

/// Taking these away, or writing to them, would pull the floor from under the running system.
bool isOfRunningSystem(const core::Mount &mount)
{
    static const QList<QByteArray> exact = {"/",    "/boot", "/boot/efi", "/usr", "/home", "/var",
                                            "/opt", "/srv",  "/root",     "/tmp", "/etc"};
    static const QList<QByteArray> below = {"/run/live/", "/lib/live/", "/run/initramfs/",
                                            "/run/archiso/", "/cdrom"};
    return exact.contains(mount.mountPoint) ||
           std::any_of(below.begin(), below.end(), [&mount](const QByteArray &prefix) {
               return mount.mountPoint.startsWith(prefix);
           });
}

QString numberText(dev_t device)
{
    return QStringLiteral("%1:%2").arg(::major(device)).arg(::minor(device));
}

ulong flagsOf(const core::Mount &mount)
{
    const struct
    {
        const char *word;
        ulong flag;
    } known[] = {{"nosuid", MS_NOSUID},   {"nodev", MS_NODEV},           {"noexec", MS_NOEXEC},
                 {"noatime", MS_NOATIME}, {"nodiratime", MS_NODIRATIME}, {"relatime", MS_RELATIME},
                 {"sync", MS_SYNCHRONOUS}};
    ulong flags = 0;
    const QList<QByteArray> words = mount.options.split(',');
    for (const auto &entry : known)
        if (words.contains(entry.word))
            flags |= entry.flag;
    return flags;
}

/// The nearest directory that exists, links resolved.
QString existingPart(const QString &dir)
{
    QString existing = QFileInfo(dir).absoluteFilePath();
    while (!QFileInfo::exists(existing) && existing != QLatin1String("/"))
        existing = QFileInfo(existing).absolutePath();
    return QFileInfo(existing).canonicalFilePath();
}

} // namespace

DeviceUse::Calls DeviceUse::Calls::ofSystem()
{
    Calls calls;
    calls.unmount = [](const QByteArray &target) {
        return ::umount2(target.constData(), UMOUNT_NOFOLLOW) == 0 ? 0 : errno;
    };
    calls.remountReadOnly = [](const core::Mount &mount) {
        const ulong flags = MS_REMOUNT | MS_RDONLY | flagsOf(mount);
        const char *const target = mount.mountPoint.constData();
        return ::mount(nullptr, target, nullptr, flags, nullptr) == 0 ? 0 : errno;
    };
    calls.mounts = [] {
        return core::readMountTable();
    };
    return calls;
}

DeviceUse::DeviceUse(const BlockDevices &block, const QString &targetDir, const Calls &calls)
    : m_block(block)
    , m_targetDir(targetDir)
    , m_calls(calls)
{}

QVector<core::Mount> DeviceUse::mountsOf(const Device &device) const
{
    QVector<core::Mount> found;
    if (device.deviceNumber.isEmpty() || device.kind == Device::Kind::Gap)
        return found;
    const QVector<core::Mount> mounts = m_calls.mounts();
    for (const core::Mount &mount : mounts)
        // The numbers of a Btrfs mount are not those of its device.
        if (mount.deviceNumber() == device.deviceNumber ||
            mount.source == QFile::encodeName(device.path))
            found.append(mount);
    return found;
}

bool DeviceUse::isSwap(const Device &device) const
{
    QFile file(m_calls.swaps);
    if (device.deviceNumber.isEmpty() || !file.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QByteArray path = core::unescapedMountField(line.left(line.indexOf(' ')));
        struct stat info = {};
        if (path.startsWith('/') && ::stat(path.constData(), &info) == 0 && S_ISBLK(info.st_mode) &&
            numberText(info.st_rdev) == device.deviceNumber)
            return true;
    }
    return false;
}

QString DeviceUse::busyReason(const Device &device) const
{
    if (device.fileSystem.isEncrypted())
        return QStringLiteral("%1 是加密卷，请先解锁，再扫描解锁后的设备").arg(device.path);
    if (isSwap(device))
        return QStringLiteral("%1 正用作系统的交换空间").arg(device.path);
    const QStringList holders = device.kind == Device::Kind::Partition
                                    ? m_block.holdersOf(device.blockName)
                                    : QStringList();
    if (!holders.isEmpty())
        return QStringLiteral("%1 正被 %2 使用，请扫描其上的逻辑卷或阵列")
            .arg(device.path, holders.join(QStringLiteral("、")));
    return QString();
}

bool DeviceUse::prepare(const Device &device, QString *action, QString *error) const
{
    *action = QStringLiteral("ready");
    if (device.blockName.isEmpty() && !device.fileSystem.isEncrypted())
        return true;
    const QString reason = busyReason(device);
    if (!reason.isEmpty())
        return fail(error, reason);
    const QVector<core::Mount> mounts = mountsOf(device);
    return mounts.isEmpty() || release(mounts, action, error);
}

bool DeviceUse::release(const QVector<core::Mount> &mounts, QString *action, QString *error) const
{
    const auto all = [&mounts](const auto &test) {
        return std::all_of(mounts.begin(), mounts.end(), test);
    };
    const QString readOnly = QStringLiteral("mounted_readonly");
    if (all(isQuiet)) {
        *action = readOnly;
        return true;
    }
    for (const core::Mount &mount : mounts)
        if (isOfRunningSystem(mount))
            return fail(error, QStringLiteral("分区已挂载在 %1，正被运行中的系统使用，无法扫描")
                                   .arg(QFile::decodeName(mount.mountPoint)));
    const bool isKept = !all([this](const core::Mount &mount) {
        return m_targetDir.isEmpty() ||
               !core::isInside(QFile::decodeName(mount.mountPoint), m_targetDir);
    });
    int left = mounts.size();
    int code = 0;
    // What was mounted last may lie on top of the others.
    while (!isKept && left > 0 && (code = m_calls.unmount(mounts.at(left - 1).mountPoint)) == 0)
        --left;
    if (left == 0) {
        *action = QStringLiteral("unmounted");
        return true;
    }
    const int refused = m_calls.remountReadOnly(mounts.at(left - 1));
    if (refused == 0) {
        *action = readOnly;
        return true;
    }
    return fail(error, QStringLiteral("分区已挂载在 %1，无法卸载（%2），也无法改为只读（%3）")
                           .arg(QFile::decodeName(mounts.at(left - 1).mountPoint),
                                isKept ? QStringLiteral("正被本程序使用") : errorText(code),
                                errorText(refused)));
}

bool DeviceUse::claim(Device *device, QString *error) const
{
    if (device->fileSystem.isEncrypted())
        return fail(error, busyReason(*device));
    if (device->blockName.isEmpty())
        return true;
    const Volume &volume = device->volume;
    int code = 0;
    auto image = Image::openClaimed(volume.image()->path(), &code);
    if (!image && code == EBUSY) {
        const QVector<core::Mount> mounts = mountsOf(*device);
        const bool isRead = std::all_of(mounts.begin(), mounts.end(), isQuiet);
        const bool isWhole = device->kind != Device::Kind::Partition && mounts.isEmpty();
        if (!isWhole && (mounts.isEmpty() || !isRead)) {
            const QString reason = busyReason(*device);
            return fail(error, !reason.isEmpty() ? reason
                               : mounts.isEmpty()
                                   ? QStringLiteral("%1 正被其他程序占用").arg(device->path)
                                   : QStringLiteral("%1 已挂载为可写，请先卸载").arg(device->path));
        }
        image = Image::open(volume.image()->path(), error);
        if (!image)
            return false;
    } else if (!image) {
        return fail(error, QStringLiteral("无法打开 %1：%2").arg(device->path, errorText(code)));
    }
    // Somebody may have written since the last reading.
    image->dropCache();
    device->volume = Volume(image, volume.start(), volume.size());
    return true;
}

bool DeviceUse::isTargetOnDevice(const QString &dir, const Device &device) const
{
    const QString existing = existingPart(dir);
    struct stat info = {};
    if (::stat(QFile::encodeName(existing).constData(), &info) != 0)
        return false;
    QStringList numbers = {numberText(info.st_dev)};
    const QVector<core::Mount> mounts = m_calls.mounts();
    const core::Mount *const mount = core::mountOf(mounts, QFile::encodeName(existing));
    struct stat source = {};
    if (mount && mount->source.startsWith('/') && ::stat(mount->source.constData(), &source) == 0 &&
        S_ISBLK(source.st_mode))
        numbers.append(numberText(source.st_rdev));
    const QString image = QFileInfo(device.volume.image()->path()).canonicalFilePath();
    for (const QString &number : qAsConst(numbers)) {
        const QStringList below = m_block.stackBelow(number);
        for (const QString &name : below)
            if (name == device.blockName || m_block.backingFileOf(name) == image ||
                m_block.pathOf(name) == image)
                return true;
    }
    return false;
}

} // namespace services::recoveryd
