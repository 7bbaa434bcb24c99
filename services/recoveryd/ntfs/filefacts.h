#pragma once

#include "recoveryd/content/filecontent.h"
#include "recoveryd/ntfs/filename.h"
#include "recoveryd/ntfs/runlist.h"

#include <functional>

namespace services::recoveryd::ntfs {

/// One data stream of a file, put together from its pieces.
struct Stream
{
    QByteArray name; ///< Empty for the file's own data.
    quint16 flags = 0;
    int compressionUnit = 0;
    qint64 size = -1; ///< Bytes; -1 if the first piece is missing.
    bool isSizeExact = true;
    qint64 allocatedSize = 0;
    qint64 initialisedSize = 0;
    bool isResident = false;
    QByteArray value;  ///< Of a resident one.
    QVector<Run> runs; ///< Ascending by vcn.
    bool isMapComplete = true;

    bool isCompressed() const { return (flags & kCompressionMask) != 0 && compressionUnit > 0; }
    bool isEncrypted() const { return (flags & kEncrypted) != 0; }
};

/// What a base record and its continuations say about a file.
struct FileFacts
{
    QVector<FileName> names;
    QVector<Stream> streams;
    quint64 createdTime = 0;  ///< FILETIME.
    quint64 modifiedTime = 0; ///< FILETIME.
    quint64 changedTime = 0;  ///< FILETIME of the last change of the record.
    quint32 dosAttributes = 0;
    quint32 reparseTag = 0; ///< 0: none.
    bool areAllRecordsFound = true;

    const Stream *stream(const QByteArray &name) const;
    /// The name that a user saw: of POSIX or Win32 before DOS. Null if there is none.
    const FileName *bestName() const;
};

/// Reads record `number`; false if it cannot be had.
using RecordSource = std::function<bool(quint64 number, Record *record)>;
/// Reads bytes of the medium, at most 64 MiB, zeros where it has none.
using MediaSource = std::function<QByteArray(qint64 offset, qint64 length)>;

/// What gathering a file needs besides its base record.
struct GatherSources
{
    RecordSource record;
    MediaSource media;
    qint64 clusterSize = 4096;
    /// Records known to continue the file, for when its attribute list is lost; may be empty.
    QVector<quint64> continuations;
};

/// Follows the attribute list of `base`. Continuations that belong to another file by now are left
/// out, and `areAllRecordsFound` becomes false.
FileFacts gatherFile(const Record &base, const GatherSources &sources);

/// The map of a stream in bytes of the volume. Where its size is not known, it ends with the last
/// run. Runs outside `volumeSize` clear `isMapComplete`.
FileContent contentOf(const Stream &stream, qint64 clusterSize, qint64 volumeSize,
                      bool *isMapComplete);

/// The cluster size that a record speaks of by itself, from the size that a stream takes and the
/// number of its clusters; 0 if it does not tell.
qint64 clusterSizeOf(const Record &record);

} // namespace services::recoveryd::ntfs
