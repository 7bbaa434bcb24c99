#pragma once

#include "recoveryd/forensics/snapshot.h"

namespace services {
namespace recoveryd {

/// Asks the kernel where a file of this machine lies on its block device. Fails with the reason
/// where that cannot be told (compressed, encrypted or inline data, a file system over several
/// devices or none), or where the device does not show the file's bytes at those places.
[[nodiscard]] bool layoutOnHost(const QString &filePath, qint64 maxBlocks, FileLayout *layout,
                                QString *error);

} // namespace recoveryd
} // namespace services
