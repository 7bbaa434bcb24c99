#pragma once

#include "vaultd/vaultconfig.h"
#include "vaultd/vaultfile.h"

#include <QStringList>
#include <QVector>

namespace services {
namespace vaultd {

/// The files that have to go, oldest first: those older than the retention time; then, oldest
/// first, as many as bring the rest within the space limit and, by their sizes, the free space back
/// to the emergency threshold. `now`: seconds since the epoch. `freeBytes`: of the vault's file
/// system; below 0 if unknown, and then there is no emergency.
QStringList expiredIds(QVector<VaultFile> files, const VaultConfig &limits, qint64 now,
                       qint64 freeBytes);

/// At nine tenths of the space limit, or above; never without a limit.
bool isSpaceShort(qint64 usedBytes, qint64 maxBytes);

} // namespace vaultd
} // namespace services
