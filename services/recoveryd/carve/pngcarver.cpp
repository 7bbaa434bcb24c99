#include "recoveryd/carve/imagecarvers.h"

#include <QtEndian>

#include <algorithm>
#include <cstring>

namespace services {
namespace recoveryd {

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

QByteArray PngCarver::magic() const
{
    return QByteArrayLiteral("\x89PNG\r\n\x1a\n");
}

bool PngCarver::carve(WindowReader &reader, qint64 start, CarvedFile *file) const
{
    file->type = QStringLiteral("PNG");
    file->extension = QStringLiteral("png");
    const qint64 limit = qMin(reader.end(), start + kMaxPng);
    qint64 at = start + kSignatureSize;
    int chunks = 0;
    file->evidence = Evidence::Header;
    while (const uchar *chunk = reader.at(at, 8)) {
        const qint64 length = qFromBigEndian<quint32>(chunk);
        const bool isFirst = chunks == 0;
        if (!isChunkType(chunk + 4) || (isFirst && std::memcmp(chunk + 4, "IHDR", 4) != 0))
            break;
        const bool isLast = std::memcmp(chunk + 4, "IEND", 4) == 0;
        if (length + kChunkOverhead > limit - at || (isLast && length != 0))
            break;
        at += length + kChunkOverhead;
        ++chunks;
        if (isLast) {
            file->evidence = Evidence::End;
            break;
        }
    }
    // The signature alone is eight fixed bytes and no accident; one chunk proves little more.
    if (file->evidence != Evidence::End && chunks > 1)
        file->evidence = Evidence::Structure;
    file->length = at - start;
    file->examined = file->length;
    return true;
}

} // namespace recoveryd
} // namespace services
