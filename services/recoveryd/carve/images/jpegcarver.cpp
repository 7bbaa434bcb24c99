#include "recoveryd/carve/check/decoding.h"
#include "recoveryd/carve/images/imagecarvers.h"
#include "recoveryd/carve/media/mediacarvers.h"

#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxJpeg = qint64(128) * 1024 * 1024;
constexpr qint64 kZeroRun = 4096;
constexpr uchar kApp2 = 0xE2;
constexpr uchar kStartOfImage = 0xD8;
constexpr uchar kEndOfImage = 0xD9;
constexpr uchar kStartOfScan = 0xDA;

bool isRestart(uchar marker)
{
    return marker >= 0xD0 && marker <= 0xD7;
}

bool isFrame(uchar marker)
{
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

/// Where the scan data at `at` end: at the next marker, or where they turn to something else.
/// Stuffed zeros, restarts and fill bytes belong to the data.
qint64 endOfScanData(const Peek &jpeg, qint64 at, qint64 limit)
{
    while (at < limit) {
        const WindowReader::Span held = jpeg.reader().span(jpeg.start() + at);
        const qint64 length = qMin(held.length, limit - at);
        if (length <= 0)
            break;
        const void *const hit = std::memchr(held.bytes, 0xFF, size_t(length));
        const qint64 step = hit ? static_cast<const uchar *>(hit) - held.bytes : length;
        // Not even a picture of one colour is packed to nothing but zeros.
        if (step > kZeroRun && jpeg.isZero(at, kZeroRun))
            return at;
        at += step;
        if (!hit)
            continue;
        const uchar *const marker = jpeg.bytes(at, 2);
        if (!marker)
            return limit;
        if (marker[1] != 0 && marker[1] != 0xFF && !isRestart(marker[1]))
            return at;
        at += marker[1] == 0xFF ? 1 : 2;
    }
    return limit;
}

/// What a walk over the segments has seen.
struct Walk
{
    qint64 end = 2;
    int segments = 0;
    bool hasFrame = false;
    bool hasScan = false;
    bool hasEnd = false;
    qint64 pictures = 0; ///< End of the pictures that an index of several names; 0 without one.
};

/// End of the last picture that the index in the segment at `at` names (CIPA DC-007).
qint64 endOfPictures(const Peek &jpeg, qint64 at)
{
    const qint64 base = at + 8; // behind marker, length and "MPF", a TIFF header
    const bool isLittle = jpeg.is(base, "II*\0");
    const auto u32 = [&](qint64 o) {
        return isLittle ? jpeg.le32(o) : jpeg.be32(o);
    };
    const auto u16 = [&](qint64 o) {
        return isLittle ? jpeg.le16(o) : jpeg.be16(o);
    };
    const qint64 directory = base + u32(base + 4);
    const int count = qMin<int>(u16(directory), 32);
    qint64 end = 0;
    for (int i = 0; i < count; ++i) {
        const qint64 entry = directory + 2 + 12 * i;
        if (u16(entry) != 0xB002)
            continue;
        const qint64 pictures = qMin<qint64>(u32(entry + 4) / 16, 64);
        const qint64 list = base + u32(entry + 8);
        for (qint64 k = 0; k < pictures; ++k) {
            const qint64 offset = u32(list + 16 * k + 8);
            const qint64 from = offset == 0 ? 0 : base + offset;
            end = qMax(end, from + u32(list + 16 * k + 4));
        }
    }
    return end;
}

Walk walkSegments(const Peek &jpeg, qint64 limit)
{
    Walk walk;
    qint64 at = 2;
    while (const uchar *bytes = jpeg.bytes(at, 4)) {
        const uchar marker = bytes[1];
        if (bytes[0] != 0xFF)
            break;
        if (marker == 0xFF) { // fill
            ++at;
            continue;
        }
        const qint64 length = qFromBigEndian<quint16>(bytes + 2);
        if (marker < 0xC0 || marker == kStartOfImage || isRestart(marker) ||
            marker == kEndOfImage || length < 2 || at + 2 + length > limit ||
            (marker == kStartOfScan && !walk.hasFrame))
            break;
        if (marker == kApp2 && jpeg.is(at + 4, "MPF\0"))
            walk.pictures = endOfPictures(jpeg, at);
        at += 2 + length;
        ++walk.segments;
        walk.hasFrame = walk.hasFrame || isFrame(marker);
        if (marker == kStartOfScan) {
            walk.hasScan = true;
            at = endOfScanData(jpeg, at, limit);
        }
    }
    walk.end = at;
    const uchar *const last = jpeg.bytes(at, 2);
    walk.hasEnd = walk.hasScan && last && last[0] == 0xFF && last[1] == kEndOfImage;
    return walk;
}

/// The end of what a camera appended to a picture that ends at `end`.
qint64 endOfAppended(const Peek &jpeg, qint64 end, const Walk &walk)
{
    if (walk.pictures > end && jpeg.has(0, walk.pictures) && jpeg.be16(walk.pictures - 2) == 0xFFD9)
        end = walk.pictures;
    CarvedFile film;
    if (jpeg.is(end + 4, "ftyp") && carveBoxes(jpeg.reader(), jpeg.start() + end, &film) &&
        hasEnd(film.evidence))
        end += film.length;
    return end;
}

} // namespace

bool carveJpeg(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek jpeg(reader, start);
    file->setKind("jpg");
    const Walk walk = walkSegments(jpeg, qMin(jpeg.room(), kMaxJpeg));
    if (!walk.hasScan && walk.segments == 0)
        return false; // three bytes that any data may hold
    file->setEnd(walk.end, walk.hasScan ? Evidence::Structure : Evidence::Header);
    if (!walk.hasEnd)
        return true;
    const Decoded picture = decodeJpeg(jpeg, walk.end + 2);
    file->isDecoded = picture == Decoded::Good;
    file->isDamaged = picture == Decoded::Bad;
    file->setEnd(endOfAppended(jpeg, walk.end + 2, walk));
    return true;
}

} // namespace services::recoveryd
