#pragma once

#include "recoveryd/ext/extinode.h"

namespace services {
namespace recoveryd {

/// Finds the inode of an absolute path inside the file system. Symbolic links are not followed.
[[nodiscard]] bool lookUp(const ExtVolume &ext, const QString &path, ExtInode *inode,
                          QString *error);

} // namespace recoveryd
} // namespace services
