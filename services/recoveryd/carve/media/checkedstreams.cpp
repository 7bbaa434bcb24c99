#include "recoveryd/carve/media/mediacarvers.h"
#include "recoveryd/carve/peek.h"

#include <array>

namespace services::recoveryd {

namespace {

constexpr int kMaxPages = 10000000;
constexpr int kMaxFlacFrames = 10000000;
constexpr qint64 kMaxFlacFrame = 1 << 20;
constexpr int kMaxStreams = 64;

/// A checksum that shifts left, by its polynomial.
template <typename T>
std::array<T, 256> leftTable(T polynomial)
{
    std::array<T, 256> table = {};
    constexpr int kBits = int(sizeof(T)) * 8;
    for (int i = 0; i < 256; ++i) {
        T value = T(T(i) << (kBits - 8));
        for (int bit = 0; bit < 8; ++bit)
            value = T((value & (T(1) << (kBits - 1))) != 0 ? T(value << 1) ^ polynomial
                                                           : T(value << 1));
        table[size_t(i)] = value;
    }
    return table;
}

quint8 crc8(const uchar *bytes, int length)
{
    static const std::array<quint8, 256> table = leftTable<quint8>(0x07);
    quint8 crc = 0;
    for (int i = 0; i < length; ++i)
        crc = table[crc ^ bytes[i]];
    return crc;
}

quint16 crc16Step(quint16 crc, uchar byte)
{
    static const std::array<quint16, 256> table = leftTable<quint16>(0x8005);
    return quint16(crc << 8) ^ table[(crc >> 8) ^ byte];
}

quint32 oggCrc(const uchar *bytes, qint64 length)
{
    static const std::array<quint32, 256> table = leftTable<quint32>(0x04C11DB7);
    quint32 crc = 0;
    for (qint64 i = 0; i < length; ++i) {
        const uchar byte = i >= 22 && i < 26 ? uchar(0) : bytes[i]; // the checksum itself
        crc = crc << 8 ^ table[(crc >> 24) ^ byte];
    }
    return crc;
}

/// Length of the header of the frame at `at`, 0 if there is none (RFC 9639).
int flacHeader(const Peek &flac, qint64 at)
{
    const uchar *const head = flac.bytes(at, 16);
    if (!head || head[0] != 0xFF || (head[1] & 0xFE) != 0xF8 || (head[2] & 0xF0) == 0 ||
        (head[2] & 0x0F) == 15 || head[3] >> 4 > 10 || (head[3] & 1) != 0)
        return 0;
    int length = 4; // the number of the frame or sample, in the manner of UTF-8
    int follow = 0;
    if (head[4] >= 0xC0)
        while (follow < 6 && (head[4] & (0x40 >> follow)))
            ++follow;
    else if (head[4] >= 0x80)
        return 0;
    length += 1 + follow;
    const int blockSize = head[2] >> 4;
    const int rate = head[2] & 15;
    length += blockSize == 6 ? 1 : blockSize == 7 ? 2 : 0;
    length += rate == 12 ? 1 : rate == 13 || rate == 14 ? 2 : 0;
    return length < 16 && crc8(head, length) == head[length] ? length + 1 : 0;
}

/// The end of the frame at `at`: where its checksum fits and the next frame, or nothing, begins.
qint64 endOfFlacFrame(const Peek &flac, qint64 at, int header)
{
    quint16 crc = 0;
    const qint64 limit = qMin(flac.room(), at + kMaxFlacFrame);
    qint64 pos = at;
    while (pos < limit) {
        const WindowReader::Span held = flac.reader().span(flac.start() + pos);
        const qint64 part = qMin(held.length, limit - pos);
        if (part <= 0)
            break;
        qint64 i = 0;
        bool isCandidate = false;
        while (i < part && !isCandidate) {
            crc = crc16Step(crc, held.bytes[i]);
            ++i;
            isCandidate = crc == 0 && pos + i > at + header + 1;
        }
        pos += i;
        if (isCandidate && (flacHeader(flac, pos) > 0 || isPaddedFrom(flac, pos)))
            return pos;
    }
    return -1;
}

struct OggStream
{
    quint32 serial = 0;
    bool hasEnded = false;
};

const char *suffixOfOgg(const Peek &ogg)
{
    const qint64 packet = 27 + ogg.u8(26);
    return ogg.is(packet, "OpusHead") ? "opus"
           : ogg.is(packet, "\x7F"
                            "FLAC")
               ? "oga"
           : ogg.is(packet, "\x80theora") ? "ogv"
           : ogg.is(packet, "Speex   ")   ? "spx"
                                          : "ogg";
}

/// Length of the page at `at` if its checksum is right, else 0 (RFC 3533).
qint64 oggPage(const Peek &ogg, qint64 at)
{
    if (!ogg.is(at, "OggS\0", 5))
        return 0;
    const int segments = ogg.u8(at + 26);
    qint64 length = 27 + segments;
    for (int i = 0; i < segments; ++i)
        length += ogg.u8(at + 27 + i);
    const uchar *const page = ogg.bytes(at, length);
    return page && oggCrc(page, length) == ogg.le32(at + 22) ? length : 0;
}

} // namespace

bool carveOgg(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek ogg(reader, start);
    file->setKind(suffixOfOgg(ogg));
    QVector<OggStream> streams;
    qint64 at = 0;
    bool hasEnd = false;
    for (int i = 0; i < kMaxPages; ++i) {
        const qint64 length = oggPage(ogg, at);
        const quint8 flags = ogg.u8(at + 5);
        const quint32 serial = ogg.le32(at + 14);
        if (length == 0 || (hasEnd && (flags & 2) != 0)) // damaged, or the next file
            break;
        if ((flags & 2) != 0 && streams.size() < kMaxStreams)
            streams.append({serial, false});
        hasEnd = true;
        for (OggStream &stream : streams) {
            stream.hasEnded = stream.hasEnded || (stream.serial == serial && (flags & 4) != 0);
            hasEnd = hasEnd && stream.hasEnded;
        }
        at += length;
    }
    if (at == 0)
        return false;
    file->setEnd(at, hasEnd ? Evidence::End : Evidence::Structure);
    file->isDecoded = hasEnd;
    return true;
}

bool carveFlac(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek flac(reader, start);
    if (flac.be24(5) != 34)
        return false;
    file->setKind("flac");
    qint64 at = 4;
    bool isLast = false;
    for (int i = 0; i < 128 && !isLast && flac.has(at, 4); ++i) {
        isLast = (flac.u8(at) & 0x80) != 0;
        at += 4 + qint64(flac.be24(at + 1));
    }
    int frames = 0;
    while (isLast && frames < kMaxFlacFrames) {
        const int header = flacHeader(flac, at);
        const qint64 end = header > 0 ? endOfFlacFrame(flac, at, header) : -1;
        if (end < 0)
            break;
        at = end;
        ++frames;
    }
    const bool hasEnd = frames > 0 && isPaddedFrom(flac, at) && flacHeader(flac, at) == 0;
    file->setEnd(at, hasEnd ? Evidence::End : frames > 0 ? Evidence::Structure : Evidence::Header);
    file->isDecoded = hasEnd;
    return true;
}

} // namespace services::recoveryd
