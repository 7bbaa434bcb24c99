#pragma once

#include "vaultd/vaultlayout.h"

namespace services::vaultd {

/// Brings over what an earlier version, which ran as the user, kept in a folder of the user's that
/// was put aside for the new vault: plain files of the user's with a fit record, under their ids.
/// All else is left where it is, and nothing there is trusted or followed. What is brought over
/// goes from there; a crash in between leaves it in both places, or is made good by the next run.
/// Returns how many files came.
int takeOver(const VaultLayout &layout, uid_t owner, int aside);

} // namespace services::vaultd
