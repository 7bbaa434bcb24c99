#pragma once

#include "recoveryd/xfs/inodewalk.h"

namespace services::recoveryd::xfs {

/// The free blocks of a group by its tree. False if that is damaged.
[[nodiscard]] bool freeOfGroup(const XfsVolume &volume, quint32 ag, Ranges *ranges);

/// What is free now, by the trees of free space; in a group whose tree is damaged, what no inode
/// and no structure of the file system uses. False, with the reason, if both are damaged.
[[nodiscard]] bool freeOfVolume(const XfsVolume &volume, Ranges *ranges, QString *error);

} // namespace services::recoveryd::xfs
