#include "recoveryd/carve/archives/archivecarvers.h"
#include "recoveryd/carve/check/decoding.h"
#include "recoveryd/carve/media/mediacarvers.h"

#include <QByteArray>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxPacked = qint64(8) << 30;
constexpr qint64 kSector = 512;
constexpr int kMaxStreams = 100000; // some tools write one for each piece

struct PackedKind
{
    const char *magic;
    int length;
    Unpacker::Format format;
    const char *suffix;
    const char *tarSuffix;
};

constexpr PackedKind kKinds[] = {
    {"\x1F\x8B\x08", 3, Unpacker::Format::Gzip, "gz", "tgz"},
    {"BZh", 3, Unpacker::Format::Bzip2, "bz2", "tbz2"},
    {"\xFD\x37zXZ", 5, Unpacker::Format::Xz, "xz", "txz"},
    {"\x28\xB5\x2F\xFD", 4, Unpacker::Format::Zstd, "zst", "zst"},
};

/// Btrfs compresses extents of up to 128 KiB to a frame each, and keeps its checksums elsewhere;
/// programs that write files add one to each frame.
bool mayBeExtent(const Peek &file)
{
    constexpr quint32 kMaxExtent = 128 * 1024;
    constexpr quint8 kChecksum = 0x04;
    constexpr quint8 kSingleSegment = 0x20;
    const quint8 head = file.u8(4);
    if ((head & (kChecksum | kSingleSegment)) != kSingleSegment)
        return false;
    const quint32 low = quint32(file.u8(5)) | quint32(file.u8(6)) << 8;
    const quint32 high = quint32(file.u8(7)) | quint32(file.u8(8)) << 8;
    const int width = head >> 6; // of the content's size
    return width < 2 || (width == 2 && (low | high << 16) <= kMaxExtent);
}

bool canBegin(const Peek &file, const PackedKind &kind)
{
    switch (kind.format) {
    case Unpacker::Format::Gzip:
        return (file.u8(3) & 0xE0) == 0;
    case Unpacker::Format::Bzip2:
        return file.u8(3) >= '1' && file.u8(3) <= '9' &&
               (file.is(4, "\x31\x41\x59\x26\x53\x59") || file.is(4, "\x17\x72\x45\x38\x50\x90"));
    default:
        return true;
    }
}

} // namespace

bool carveCompressed(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek packed(reader, start);
    const PackedKind *kind = nullptr;
    for (const PackedKind &known : kKinds)
        if (packed.is(0, known.magic, known.length))
            kind = &known;
    if (!kind || !canBegin(packed, *kind))
        return false;
    DecodingBudget budget;
    const qint64 limit = qMin(packed.room(), kMaxPacked);
    qint64 at = 0;
    Unpacked last;
    bool isTar = false;
    qint64 size = 0;
    for (int i = 0; i < kMaxStreams && packed.is(at, kind->magic, kind->length); ++i) {
        const Unpacked stream = unpackStream(packed, at, limit, kind->format, &budget);
        const bool isNextFile = i > 0 && (start + at) % kSector == 0;
        if (isNextFile && stream.result == Decoded::Bad)
            break;
        if (i == 0)
            isTar = stream.head.mid(257, 5) == "ustar";
        last = stream;
        at = stream.end;
        size += stream.size;
        if (last.result != Decoded::Good)
            break;
    }
    if (last.result == Decoded::Bad && size == 0)
        return false;
    file->setKind(isTar ? kind->tarSuffix : kind->suffix);
    file->setEnd(at, last.result == Decoded::Good ? Evidence::End : Evidence::Structure);
    if (kind->format == Unpacker::Format::Zstd && mayBeExtent(packed)) {
        file->setEnd(at, Evidence::Structure);
        return true;
    }
    // Something else right behind it may be a damaged part of the same file.
    file->isDecoded = last.result == Decoded::Good && isPaddedFrom(packed, at);
    return true;
}

} // namespace services::recoveryd
