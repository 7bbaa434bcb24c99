#pragma once

#include "recoveryd/ntfs/filename.h"

#include <functional>

namespace services::recoveryd {
class MediaReader;
struct FileContent;
} // namespace services::recoveryd

namespace services::recoveryd::ntfs {

/// One change of a file.
struct UsnRecord
{
    enum Reason : quint32 { FileDelete = 0x00000200, RenameOldName = 0x00001000 };

    quint64 file = 0; ///< Reference.
    quint64 time = 0; ///< FILETIME.
    quint32 reason = 0;
    FileName name; ///< Parent, name and attributes only.

    bool isDirectory() const { return (name.attributes & 0x10U) != 0; }
};

/// Reads the records of $UsnJrnl:$J, versions 2 and 3, from the oldest to the newest that are left
/// (Microsoft's USN_RECORD_V2 and _V3). `handle` returns false to end. Reads at most the newest
/// 512 MiB.
void forEachUsnRecord(const MediaReader &media, const FileContent &journal,
                      const std::function<bool(const UsnRecord &)> &handle);

} // namespace services::recoveryd::ntfs
