#pragma once

#include "recoveryd/ntfs/filename.h"

#include <functional>

namespace services::recoveryd::ntfs {

/// Called with the reference to a file and one of its names.
using IndexEntryHandler = std::function<void(quint64 reference, const FileName &name)>;

/// Finds directory index entries in `bytes`, valid ones and those left behind by deletions alike:
/// an entry is told by its own fields. For $INDEX_ROOT values, INDX blocks with their fixups
/// undone, and the slack behind either. Entries begin at multiples of 8 bytes from the start.
void forEachIndexEntry(const char *bytes, int length, const IndexEntryHandler &handle);

} // namespace services::recoveryd::ntfs
