#pragma once

#include "recoveryd/ext/extinode.h"

#include <functional>

namespace services {
namespace recoveryd {

/// Takes one entry of a directory, as the bytes on disk have it; false ends the visit.
using EntryVisitor = std::function<bool(const QByteArray &name, quint32 inode)>;

/// Visits the entries of a directory in the order of its blocks, "." and ".." among them. Entries
/// that a damaged block hides are left out; false if a block cannot be read, or for a directory of
/// more than 16,384 blocks. What is no directory has no entries.
[[nodiscard]] bool visitEntries(const ExtVolume &ext, const ExtInode &directory,
                                const EntryVisitor &visit, QString *error);

/// The inode that the directory has for the name; 0 if there is none.
[[nodiscard]] bool findInDirectory(const ExtVolume &ext, const ExtInode &directory,
                                   const QByteArray &name, quint32 *inode, QString *error);

} // namespace recoveryd
} // namespace services
