#include "recoveryd/carve/check/decoding.h"

#include <vector>
#include <zlib.h>

namespace services::recoveryd {

namespace {

constexpr qint64 kStep = 256 * 1024;
constexpr int kHead = 512;

} // namespace

Unpacked unpackStream(const Peek &file, qint64 at, qint64 limit, Unpacker::Format format,
                      DecodingBudget *budget)
{
    Unpacked unpacked;
    unpacked.end = at;
    unpacked.crc = quint32(crc32(0, nullptr, 0));
    const std::unique_ptr<Unpacker> unpacker = Unpacker::make(format);
    std::vector<uchar> output(static_cast<size_t>(kStep));
    limit = qMin(limit, file.room());
    while (unpacked.end < limit) {
        const WindowReader::Span held = file.reader().span(file.start() + unpacked.end);
        const uchar *in = held.bytes;
        qint64 left = qMin(qMin(held.length, limit - unpacked.end), kStep);
        if (left <= 0)
            break;
        const qint64 given = left;
        uchar *out = output.data();
        qint64 room = kStep;
        const Unpacker::State state = unpacker->step(&in, &left, &out, &room);
        const qint64 made = kStep - room;
        unpacked.end += given - left;
        unpacked.size += made;
        unpacked.crc = quint32(crc32(unpacked.crc, output.data(), uInt(made)));
        if (unpacked.head.size() < kHead)
            unpacked.head.append(reinterpret_cast<const char *>(output.data()),
                                 int(qMin(made, qint64(kHead - unpacked.head.size()))));
        if (state == Unpacker::State::End) {
            unpacked.result = Decoded::Good;
            return unpacked;
        }
        const bool isStuck = made == 0 && left == given;
        if (state == Unpacker::State::Bad || isStuck) {
            unpacked.result = Decoded::Bad;
            return unpacked;
        }
        if (!budget->take(made + given - left))
            return unpacked;
    }
    unpacked.result = Decoded::Bad;
    return unpacked;
}

Decoded crcOf(const Peek &file, qint64 at, qint64 length, DecodingBudget *budget, quint32 *crc)
{
    *crc = quint32(crc32(0, nullptr, 0));
    if (!file.has(at, length))
        return Decoded::Bad;
    while (length > 0) {
        const WindowReader::Span held = file.reader().span(file.start() + at);
        const qint64 part = qMin(held.length, length);
        if (part <= 0)
            return Decoded::Bad;
        *crc = quint32(crc32(*crc, held.bytes, uInt(part)));
        at += part;
        length -= part;
        if (!budget->take(part))
            return Decoded::Unknown;
    }
    return Decoded::Good;
}

} // namespace services::recoveryd
