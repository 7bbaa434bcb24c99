#pragma once

#include "recoveryd/vault/foundvault.h"

namespace services {
namespace recoveryd {

/// The vaults below a directory where an installed system is mounted.
FoundVaults vaultsBelow(const QString &targetDir);

} // namespace recoveryd
} // namespace services
