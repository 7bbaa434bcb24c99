#pragma once

#include "recoveryd/ntfs/indexentries.h"
#include "recoveryd/ntfs/record.h"

namespace services::recoveryd {
class MediaReader;
struct FileContent;
} // namespace services::recoveryd

namespace services::recoveryd::ntfs {

/// What is looked for in the log.
struct LogHandlers
{
    std::function<void(const Record &record)> record; ///< An image of a FILE record.
    IndexEntryHandler indexEntry;
    std::function<bool()> mayGoOn; ///< Asked every few MiB; false ends.
};

/// Looks through all pages of $LogFile, current and stale, for images of FILE records and index
/// entries: the data of redo and undo operations begin at multiples of 8 bytes, so neither the
/// order of the log nor its version matters. Pages after "NTFS Documentation" of the Linux-NTFS
/// project. False if it was ended.
[[nodiscard]] bool readLogFile(const MediaReader &media, const FileContent &log,
                               const LogHandlers &handlers);

} // namespace services::recoveryd::ntfs
