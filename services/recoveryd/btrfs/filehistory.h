#pragma once

#include "recoveryd/btrfs/piece.h"

#include <QVector>

namespace services::recoveryd::btrfs {

/// A file as it was in one transaction.
struct FileVersion
{
    quint64 inode = 0;
    quint64 tree = 0;
    InodeFacts facts;
    QVector<Reference> names;
    QVector<ExtentItem> extents; ///< Ascending by offset.
    bool isComplete = false;     ///< All extents are there.
    bool isLive = false;         ///< It stands like that in the file system as it is now.
    quint64 lastSeen = 0;        ///< The last generation that had it.
};

/// The versions of the files of one inode number that are worth listing: the live ones, and those
/// which hold something that no newer one does; the live ones first, then from the newest on.
/// `pieces` are all of the number, within a tree the newest first. `mainTree`: whose a file of the
/// log is in doubt. Pure.
QVector<FileVersion> versionsOf(QVector<Piece> pieces, quint64 mainTree);

} // namespace services::recoveryd::btrfs
