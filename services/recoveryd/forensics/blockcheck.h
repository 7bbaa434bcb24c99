#pragma once

#include "recoveryd/forensics/snapshot.h"

#include <QJsonArray>

namespace services {
namespace recoveryd {

/// Reads and hashes every block of the layout into the snapshot, with the hash of the whole file;
/// holes count as zeros.
[[nodiscard]] bool hashBlocks(const Volume &volume, Snapshot *snapshot, QString *error);

/// What a snapshot's blocks are now.
struct Verification
{
    QString verificationId;
    QString verifyTime;
    QString note;
    int unchangedBlocks = 0;
    int changedBlocks = 0; ///< Those that cannot be read are among them.
    int zeroedBlocks = 0;
    bool inodeChanged = false;
    QJsonArray blockDetails;

    double integrityPercent() const;
    /// Without the block details.
    QJsonObject summary() const;
    QJsonObject toJson() const;
};

/// Reads the same blocks again, past the system's cache.
Verification verifyBlocks(const Volume &volume, const Snapshot &snapshot);

} // namespace recoveryd
} // namespace services
