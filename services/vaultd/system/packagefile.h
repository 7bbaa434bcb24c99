#pragma once

#include "vaultd/users/useridentity.h"

#include <atomic>

namespace services::vaultd {

/// Opens a package with the rights of the user who names it. Only a regular file of that user or
/// root which nobody else may write. -1, with *error for the user, for anything else.
int openPackage(const QString &path, const UserIdentity &user, QString *error);

/// Copies what is open to a file for root alone, which did not exist: what was judged is what is
/// installed, whatever happens to the original. *sha256: of the bytes as they were read, in
/// hexadecimal.
[[nodiscard]] bool copyPackage(int fd, const QString &copy, const std::atomic<bool> &stop,
                               QString *sha256, QString *error);

} // namespace services::vaultd
