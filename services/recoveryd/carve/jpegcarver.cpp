#include "recoveryd/carve/imagecarvers.h"

#include <QtEndian>

#include <cstring>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kMaxJpeg = qint64(128) * 1024 * 1024;
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

/// The next marker in the scan data: the place of its 0xFF, or -1 where the data end before one.
/// Stuffed zeros, restarts and fill bytes belong to the data.
qint64 endOfScanData(WindowReader &reader, qint64 at, qint64 limit)
{
    while (at < limit) {
        const WindowReader::Span held = reader.span(at);
        const qint64 length = qMin(held.length, limit - at);
        if (length <= 0)
            return -1;
        const void *const hit = std::memchr(held.bytes, 0xFF, size_t(length));
        if (!hit) {
            at += length;
            continue;
        }
        at += static_cast<const uchar *>(hit) - held.bytes;
        const uchar *const marker = reader.at(at, 2);
        if (!marker)
            return -1;
        if (marker[1] != 0 && marker[1] != 0xFF && !isRestart(marker[1]))
            return at;
        at += marker[1] == 0xFF ? 1 : 2;
    }
    return -1;
}

} // namespace

QByteArray JpegCarver::magic() const
{
    return QByteArrayLiteral("\xFF\xD8\xFF");
}

bool JpegCarver::carve(WindowReader &reader, qint64 start, CarvedFile *file) const
{
    file->type = QStringLiteral("JPG");
    file->extension = QStringLiteral("jpg");
    file->evidence = Evidence::Header;
    const qint64 limit = qMin(reader.end(), start + kMaxJpeg);
    qint64 at = start + 2;
    int segments = 0;
    bool hasFrame = false;
    bool hasScan = false;
    while (const uchar *bytes = reader.at(at, 4)) {
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
            (marker == kStartOfScan && !hasFrame))
            break;
        at += 2 + length;
        ++segments;
        hasFrame = hasFrame || isFrame(marker);
        if (marker == kStartOfScan) {
            hasScan = true;
            const qint64 next = endOfScanData(reader, at, limit);
            at = next < 0 ? limit : next;
        }
    }
    const uchar *const last = reader.at(at, 2);
    if (last && last[0] == 0xFF && last[1] == kEndOfImage && hasScan) {
        at += 2;
        file->evidence = Evidence::End;
    } else if (hasScan) {
        file->evidence = Evidence::Structure;
    } else if (segments == 0) {
        return false; // three bytes that any data may hold
    }
    file->length = at - start;
    file->examined = file->length;
    return true;
}

} // namespace recoveryd
} // namespace services
