#pragma once

#include <QJsonObject>
#include <QString>

namespace services {
namespace recoveryd {

struct Device;

/// What a session knows about the device that it scanned.
struct DeviceMark
{
    QString devicePath;
    QString imagePath;
    qint64 volumeStart = 0;
    QJsonObject identity; ///< Of identityOf(); empty for sessions of old versions.
};

/// What tells a device from others and from itself with another content: its size, the place on the
/// disk, the disk's serial number where it has one, and the id of the partition table and of the
/// file system; without such an id, a hash of the first bytes. Reads a few blocks.
QJsonObject identityOf(const Device &device);

/// Whether a device is the one that was marked. On a mismatch `reason` tells the user why.
[[nodiscard]] bool isSameDevice(const DeviceMark &mark, const Device &device, QString *reason);

} // namespace recoveryd
} // namespace services
