#include "recoveryd/carve/check/decoding.h"
#include "recoveryd/carve/images/imagecarvers.h"

#include <algorithm>

namespace services::recoveryd {

namespace {

constexpr qint64 kSignatureSize = 8;
constexpr qint64 kChunkOverhead = 12; // length, type, checksum
constexpr qint64 kMaxPng = qint64(512) * 1024 * 1024;

bool isChunkType(const uchar *type)
{
    return std::all_of(type, type + 4,
                       [](uchar c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); });
}

} // namespace

bool carvePng(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek png(reader, start);
    file->setKind("png");
    const qint64 limit = qMin(png.room(), kMaxPng);
    DecodingBudget budget;
    qint64 at = kSignatureSize;
    int chunks = 0;
    bool isChecked = true;
    bool isWhole = false;
    while (const uchar *chunk = png.bytes(at, 8)) {
        const qint64 length = qFromBigEndian<quint32>(chunk);
        const bool isFirst = chunks == 0;
        if (!isChunkType(chunk + 4) || (isFirst && !png.is(at + 4, "IHDR")))
            break;
        const bool isLast = png.is(at + 4, "IEND");
        if (length + kChunkOverhead > limit - at || (isLast && length != 0))
            break;
        quint32 crc = 0;
        const Decoded sum = crcOf(png, at + 4, length + 4, &budget, &crc);
        if (sum == Decoded::Good && crc != png.be32(at + 8 + length)) {
            if (isFirst)
                break;
            file->isDamaged = true;
        }
        isChecked = isChecked && sum == Decoded::Good;
        at += length + kChunkOverhead;
        ++chunks;
        if (isLast) {
            isWhole = true;
            break;
        }
    }
    // The signature alone is eight fixed bytes and no accident; one chunk proves little more.
    file->setEnd(at, isWhole ? Evidence::End : chunks > 1 ? Evidence::Structure : Evidence::Header);
    file->isDecoded = isWhole && isChecked && !file->isDamaged;
    return true;
}

} // namespace services::recoveryd
