#pragma once

#include "recoveryd/xfs/geometry.h"
#include "recoveryd/xfs/view.h"

#include <functional>

namespace services::recoveryd::xfs {

/// An entry of a directory, or what is left of one.
struct DirectoryEntry
{
    quint64 child = 0;
    QByteArray name;
    quint8 type = 0; ///< 0: not known.
    bool isFreed = false;
    bool isChildWhole = true; ///< False: only the lower 32 bits of its number are left.
};

using TakesEntry = std::function<void(const DirectoryEntry &entry)>;

/// The head of a block of entries.
struct DirectoryHead
{
    int size = 0;         ///< Where entries begin; 0 if it is no such block.
    bool hasLeaf = false; ///< The only block of its directory, with its hash table at the end.
    bool isV5 = false;
    quint64 owner = 0; ///< The directory; version 5 only.
    quint64 lsn = 0;
    QByteArray uuid;
};

DirectoryHead directoryHead(const View &block);

/// Gives the entries of a block, or of a stretch of one that begins `at` bytes into it: those that
/// are in use, and the remains of those that are not. An entry ends with its own place in the
/// block, by which it is told from chance.
void forEachEntry(const View &stretch, int at, const Geometry &geometry, const TakesEntry &take);

/// The same for a directory that is kept in its inode; its parent is told as "..". `size` is the
/// directory's. Behind it there may be entries that were removed.
void forEachShortEntry(const View &fork, quint64 size, const Geometry &geometry,
                       const TakesEntry &take);

} // namespace services::recoveryd::xfs
