#include "vaultd/expiry.h"

#include <algorithm>
#include <tuple>

namespace services {
namespace vaultd {

namespace {
constexpr qint64 kSecondsPerDay = 24 * 60 * 60;
} // namespace

Expiry::Expiry(const VaultConfig &limits, qint64 now, qint64 usedBytes, qint64 freeBytes)
    : m_limits(limits)
    , m_oldest(now - limits.retentionDays * kSecondsPerDay)
    , m_used(usedBytes)
    , m_free(freeBytes)
{}

bool Expiry::takes(const VaultFile &file)
{
    const bool isTooMuch = m_limits.maxSpaceBytes > 0 && m_used > m_limits.maxSpaceBytes;
    const bool isEmergency = m_free >= 0 && m_free < m_limits.emergencyThresholdBytes;
    if (file.keptSince > m_oldest && !isTooMuch && !isEmergency)
        return false;
    m_used -= file.fileSize;
    if (m_free >= 0)
        m_free += file.fileSize;
    return true;
}

QStringList expiredIds(QVector<VaultFile> files, const VaultConfig &limits, qint64 now,
                       qint64 freeBytes)
{
    qint64 used = 0;
    for (const VaultFile &file : qAsConst(files))
        used += file.fileSize;
    Expiry expiry(limits, now, used, freeBytes);
    const auto rank = [&expiry](const VaultFile &file) {
        return file.keptSince <= expiry.oldest() ? 0 : file.isReplaced ? 1 : 2;
    };
    std::sort(files.begin(), files.end(), [&rank](const VaultFile &a, const VaultFile &b) {
        return std::make_tuple(rank(a), a.keptSince, a.id) <
               std::make_tuple(rank(b), b.keptSince, b.id);
    });
    QStringList ids;
    for (const VaultFile &file : qAsConst(files)) {
        if (!expiry.takes(file))
            break;
        ids.append(file.id);
    }
    return ids;
}

bool isSpaceShort(qint64 usedBytes, qint64 maxBytes)
{
    return maxBytes > 0 && usedBytes >= maxBytes - maxBytes / 10;
}

} // namespace vaultd
} // namespace services
