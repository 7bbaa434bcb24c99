#pragma once

#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/vault/foundvault.h"

namespace services {
namespace recoveryd {

/// The vaults at the top of an ext2/3/4 file system, in root's home and in those below /home, each
/// directory once however often the file system names it. Damage hides what lies behind it.
FoundVaults extVaultsOn(const Device &device, const FoundVault::Stopped &isStopped);

} // namespace recoveryd
} // namespace services
