#pragma once

#include <QByteArray>
#include <QVector>

/// The smallest sound files of many formats, built by hand.
namespace sampleformats {

struct Sample
{
    const char *name;
    const char *suffix;
    QByteArray bytes;
    bool isDecoded = false; ///< The format has checksums over all of it, or is decoded.
};

/// One of each; between 1 and 60 KiB, none of which ends with a zero.
QVector<Sample> binaryFiles();
/// What Btrfs keeps of a file, or of a part of one: a frame of zstd without a checksum.
QByteArray compressedExtent();

} // namespace sampleformats
