#pragma once

#include "vaultd/vaultconfig.h"
#include "vaultd/vaultfile.h"

#include <QStringList>
#include <QVector>

namespace services {
namespace vaultd {

/// Says of one file after the other whether it has to go: those older than the retention time; then
/// as many as bring the rest within the space limit and, by their sizes, the free space back to the
/// emergency threshold. Files are to be given in the order in which they would go: the old ones,
/// then those that a program replaced, then the rest, oldest first each. `now`: seconds since the
/// epoch. `freeBytes`: of the vault's file system; below 0 if unknown: then there is no emergency.
class Expiry
{
public:
    Expiry(const VaultConfig &limits, qint64 now, qint64 usedBytes, qint64 freeBytes);

    /// Files kept at or before this go because of their age.
    qint64 oldest() const { return m_oldest; }
    /// False if this file may stay, and with it all that follow.
    [[nodiscard]] bool takes(const VaultFile &file);

private:
    VaultConfig m_limits;
    qint64 m_oldest;
    qint64 m_used;
    qint64 m_free;
};

/// The files that have to go, in the order in which they go.
QStringList expiredIds(QVector<VaultFile> files, const VaultConfig &limits, qint64 now,
                       qint64 freeBytes);

/// At nine tenths of the space limit, or above; never without a limit.
bool isSpaceShort(qint64 usedBytes, qint64 maxBytes);

} // namespace vaultd
} // namespace services
