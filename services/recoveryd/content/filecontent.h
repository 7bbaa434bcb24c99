#pragma once

#include "recoveryd/devices/range.h"

#include <QByteArray>
#include <QVector>

namespace services::recoveryd {

/// A stretch of a file that stands unchanged on the medium. Bytes.
struct Extent
{
    qint64 logical = 0;  ///< Offset in the file.
    qint64 physical = 0; ///< Offset in the volume.
    qint64 length = 0;

    qint64 logicalEnd() const { return logical + length; }
    qint64 physicalEnd() const { return physical + length; }
};

inline bool operator==(const Extent &a, const Extent &b)
{
    return a.logical == b.logical && a.physical == b.physical && a.length == b.length;
}

enum class Codec : quint8 {
    Zlib,
    Lzo, ///< Btrfs framing: total length, then segments that never cross a sector by their header.
    Zstd,
    Lznt1, ///< One NTFS compression unit.
};

/// A stretch of a file that is stored compressed.
struct PackedExtent
{
    qint64 logical = 0;  ///< Offset in the file.
    qint64 length = 0;   ///< Bytes of the file.
    qint64 skip = 0;     ///< Offset of the first of them in the decompressed data.
    qint64 unpacked = 0; ///< Size of all the decompressed data.
    Codec codec = Codec::Zlib;
    QVector<Range> stored;  ///< Bytes of the volume, in order; empty if `inlineBytes` holds them.
    QByteArray inlineBytes; ///< Compressed data that stand in the metadata.
};

/// Where the bytes of a file are. What nothing covers reads as zeros: a hole, if `isMapComplete`.
struct FileContent
{
    qint64 size = 0;
    QVector<Extent> extents;      ///< Ascending by `logical`, without overlap.
    QVector<PackedExtent> packed; ///< Likewise; usually empty.
    QByteArray inlineBytes;       ///< The file's first bytes, where the metadata hold them.

    /// Bytes of the volume that belong to the file, ascending, neighbours joined.
    Ranges storedRanges() const;
    /// Moves all places on the medium, for a volume that begins `by` bytes into another.
    void shift(qint64 by);
    /// Appends an extent, joined with the last one where it continues it. Call in ascending order.
    void append(qint64 logical, qint64 physical, qint64 length);
    /// Ends the file earlier; extents behind the end go.
    void cutTo(qint64 newSize);
};

} // namespace services::recoveryd
