#pragma once

#include <QByteArray>
#include <QString>

namespace core {
namespace controllers {
namespace upgrade {

/// What an update request says about the device. Each may be empty.
struct DeviceStrings
{
    QString fingerprint; ///< Stable and opaque: nothing of the machine id can be read from it.
    QString osInfo;
    QString cpuModel;
};

/// Reads them from the running system; three small files.
DeviceStrings readDeviceStrings();

/// A hash of the machine id and the product's word; empty for an empty id.
QString fingerprintOf(const QByteArray &machineId);
/// The first "model name" (or "Hardware", on some ARM boards) of /proc/cpuinfo.
QString cpuModelFrom(const QByteArray &cpuInfo);

} // namespace upgrade
} // namespace controllers
} // namespace core
