#pragma once

#include "recoveryd/scan/scancontext.h"
#include "recoveryd/scan/scanner.h"

namespace services::recoveryd {

/// A volume that was told by a superblock, a boot sector or a backup of one.
struct FoundVolume
{
    QString type; ///< As FileSystem::type.
    QString label;
    qint64 start = 0; ///< Bytes from the start of what was searched.
    qint64 size = 0;  ///< Bytes; may end beyond what was searched.
    bool isFromBackup = false;
};

/// What the service can do with one family of file systems. Plain functions, any thread.
struct FileSystemSupport
{
    /// Whether a probed file system belongs to the family.
    bool (*handles)(const FileSystem &fileSystem);
    /// The scanner of its metadata; works also where the head of the volume is damaged, as long as
    /// a backup or a trace of it is left. Never null.
    std::unique_ptr<Scanner> (*makeScanner)(const ScanContext &context);
    /// What the file system calls free now, as byte ranges of the volume. Null: not known.
    bool (*freeRanges)(const MediaReader &media, Ranges *ranges, QString *error);
    /// Whether a superblock or boot sector, or a backup of one, stands at byte `offset`, and which
    /// volume it speaks of. `bytes` are the 4096 bytes from there. Cheap to say no; a yes is
    /// checked by more than the magic number. Null: cannot be searched for.
    bool (*recognise)(const MediaReader &media, qint64 offset, const QByteArray &bytes,
                      FoundVolume *found);
};

/// All families, in the order in which they are asked.
const QVector<FileSystemSupport> &supportedFileSystems();

/// The family of a probed file system; null if there is none.
const FileSystemSupport *supportOf(const FileSystem &fileSystem);

} // namespace services::recoveryd
