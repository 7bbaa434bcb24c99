#pragma once

#include "recoveryd/forensics/snapshot.h"

namespace services {
namespace recoveryd {

struct SnapshotRecovery
{
    QString outputPath;
    qint64 bytesWritten = 0;
    qint64 failedBlocks = 0; ///< Unreadable, written as zeros.
};

/// Writes what the snapshot's blocks hold now into a new file in `outputDir`, which is made if it
/// is not there; under the file's own name, or a numbered one where that is taken.
[[nodiscard]] bool recoverSnapshot(const Volume &volume, const Snapshot &snapshot,
                                   const QString &outputDir, SnapshotRecovery *result,
                                   QString *error);

} // namespace recoveryd
} // namespace services
