#pragma once

#include "core/mounttable.h"
#include "recoveryd/devices/devicecatalog.h"

#include <functional>

namespace services::recoveryd {

/// What the running system does with block devices, and what it can be made to stop. The system's
/// calls and tables are members for the sake of tests. Any thread.
class DeviceUse
{
public:
    /// System calls that return 0 or an errno; `target` is a mount point.
    struct Calls
    {
        std::function<int(const QByteArray &target)> unmount;
        std::function<int(const core::Mount &mount)> remountReadOnly;
        std::function<QVector<core::Mount>()> mounts;
        QString swaps = QStringLiteral("/proc/swaps");

        static Calls ofSystem();
    };

    /// `targetDir`: where the installed system is mounted for the program's other parts; it is
    /// never unmounted.
    DeviceUse(const BlockDevices &block, const QString &targetDir, const Calls &calls);

    /// Sees to it that nothing is written to the device while it is scanned. `action` becomes
    /// "ready", "unmounted" or "mounted_readonly". False with the reason, and nothing changed,
    /// where that cannot be.
    [[nodiscard]] bool prepare(const Device &device, QString *action, QString *error) const;

    /// Opens the device anew so that nobody else can write to it or mount it; one that is mounted
    /// read-only, and a disk some of whose partitions are in use, is only read. False with the
    /// reason if it is busy. Does nothing for what is in an image.
    [[nodiscard]] bool claim(Device *device, QString *error) const;

    /// Whether files written to `dir`, which need not exist yet, would end on the device.
    bool isTargetOnDevice(const QString &dir, const Device &device) const;

private:
    QVector<core::Mount> mountsOf(const Device &device) const;
    bool isSwap(const Device &device) const;
    QString busyReason(const Device &device) const;
    [[nodiscard]] bool release(const QVector<core::Mount> &mounts, QString *action,
                               QString *error) const;

    BlockDevices m_block;
    QString m_targetDir;
    Calls m_calls;
};

} // namespace services::recoveryd
