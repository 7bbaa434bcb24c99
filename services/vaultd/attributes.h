#pragma once

#include "vaultd/vaultfile.h"

namespace services::vaultd {

/// Gives one open file the extended attributes of another, access lists included, as far as the
/// file system takes them. Not those that give rights beyond the file's owner.
void copyAttributes(int from, int to);

/// Makes an open file's owner, permissions, access list, attributes and times those of the record.
/// What the record does not know stays as it is. Special permission bits come back only with their
/// former owner being `user`.
void applyRecord(int fd, const VaultFile &file, uid_t user);

} // namespace services::vaultd
