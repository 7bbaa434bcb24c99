#pragma once

#include "vaultd/vaultlayout.h"

namespace services {
namespace vaultd {

/// Moves a file into the vault: the one way in, for the command line as for whatever catches
/// deletions of other programs. Any process and any thread; a running service notices.
///
/// The record is on the medium before the content moves. On one file system the content is renamed;
/// across file systems a copy is made, read back and given its name before the original goes. At
/// any moment the whole content stands under its old name or in the vault, and if the process dies,
/// VaultStore::refresh() settles which. Only plain files outside the vault are taken. `now`:
/// seconds since the epoch.
[[nodiscard]] bool protectFile(const VaultLayout &layout, const QString &path, qint64 now,
                               VaultFile *file, QString *error);

} // namespace vaultd
} // namespace services
