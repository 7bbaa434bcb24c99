#include "vaultd/expiry.h"

#include <algorithm>

namespace services {
namespace vaultd {

namespace {
constexpr qint64 kSecondsPerDay = 24 * 60 * 60;
} // namespace

QStringList expiredIds(QVector<VaultFile> files, const VaultConfig &limits, qint64 now,
                       qint64 freeBytes)
{
    std::sort(files.begin(), files.end(), [](const VaultFile &a, const VaultFile &b) {
        return a.keptSince != b.keptSince ? a.keptSince < b.keptSince : a.id < b.id;
    });
    qint64 used = 0;
    for (const VaultFile &file : qAsConst(files))
        used += file.fileSize;

    QStringList ids;
    qint64 freed = 0;
    for (const VaultFile &file : qAsConst(files)) {
        const bool isOld = now - file.keptSince >= limits.retentionDays * kSecondsPerDay;
        const bool isTooMuch = limits.maxSpaceBytes > 0 && used - freed > limits.maxSpaceBytes;
        const bool isEmergency =
            freeBytes >= 0 && freeBytes + freed < limits.emergencyThresholdBytes;
        if (!isOld && !isTooMuch && !isEmergency)
            break;
        ids.append(file.id);
        freed += file.fileSize;
    }
    return ids;
}

bool isSpaceShort(qint64 usedBytes, qint64 maxBytes)
{
    return maxBytes > 0 && usedBytes >= maxBytes - maxBytes / 10;
}

} // namespace vaultd
} // namespace services
