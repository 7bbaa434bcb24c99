#include "recoveryd/carve/documents/documentcarvers.h"
#include "recoveryd/carve/media/mediacarvers.h"
#include "recoveryd/carve/peek.h"

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxRtf = qint64(256) * 1024 * 1024;
constexpr qint64 kMaxDrawing = qint64(32) * 1024 * 1024;
constexpr int kMaxPackets = 100000000;
constexpr int kMaxTables = 256;
constexpr int kSampledPages = 64;

bool isTreePage(int kind)
{
    return kind == 2 || kind == 5 || kind == 10 || kind == 13;
}

/// The end of the tables of the font at `at`, 0 if there is none.
qint64 endOfFont(const Peek &font, qint64 at)
{
    const int tables = font.be16(at + 4);
    if (tables < 4 || tables > kMaxTables)
        return 0;
    qint64 end = at + 12 + 16 * tables;
    quint32 lastTag = 0;
    for (int i = 0; i < tables; ++i) {
        const qint64 entry = at + 12 + 16 * i;
        const quint32 tag = font.be32(entry);
        if (tag <= lastTag) // they are sorted
            return 0;
        lastTag = tag;
        end = qMax(end, qint64(font.be32(entry + 8)) + font.be32(entry + 12));
    }
    return end;
}

} // namespace

bool carveRtf(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek rtf(reader, start);
    file->setKind("rtf");
    file->holdsText = true;
    const qint64 limit = qMin(rtf.room(), kMaxRtf);
    qint64 at = 0;
    int depth = 0;
    bool isEscaped = false;
    bool isOpen = true;
    while (at < limit && isOpen) {
        const WindowReader::Span held = rtf.reader().span(start + at);
        const qint64 part = qMin(held.length, limit - at);
        if (part <= 0)
            break;
        qint64 i = 0;
        for (; i < part && isOpen; ++i) {
            const uchar c = held.bytes[i];
            if (c == 0)
                break;
            if (isEscaped)
                isEscaped = false;
            else if (c == '\\')
                isEscaped = true;
            else if (c == '{')
                ++depth;
            else if (c == '}')
                isOpen = --depth > 0;
        }
        at += i;
        if (i < part && isOpen)
            break;
    }
    if (!isOpen)
        while (rtf.u8(at) == '\r' || rtf.u8(at) == '\n')
            ++at;
    file->setEnd(at, isOpen ? Evidence::Structure : Evidence::End);
    return true;
}

bool carveSqlite(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek database(reader, start);
    const qint64 told = database.be16(16);
    const qint64 page = told == 1 ? 65536 : told;
    const qint64 pages = database.be32(28);
    if (page < 512 || (page & (page - 1)) != 0 || database.u8(21) != 64 || database.u8(22) != 32 ||
        database.u8(23) != 32 || !isTreePage(database.u8(100)))
        return false;
    file->setKind("db");
    file->inside = Inside::Files;
    file->holdsText = true;
    const qint64 end = page * pages;
    const bool isThere = pages > 0 && database.has(0, end);
    // Overflow pages begin with the number of another page, tree pages with their kind.
    bool isSound = isThere;
    const qint64 step = qMax(qint64(1), pages / kSampledPages);
    for (qint64 i = step; isSound && i < pages; i += step) {
        const qint64 at = i * page;
        isSound = isTreePage(database.u8(at)) || database.be32(at) <= pages ||
                  (database.u8(at) >= 1 && database.u8(at) <= 5); // map of an auto-vacuum database
    }
    file->setEnd(qMin(qMax(end, page), database.room()),
                 isSound ? Evidence::End : Evidence::Structure);
    return true;
}

bool carveDwg(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek drawing(reader, start);
    const int release = (drawing.u8(4) - '0') * 10 + drawing.u8(5) - '0';
    if (release < 2 || release > 40 || !drawing.isZero(6, 5))
        return false;
    file->setKind("dwg");
    file->setEnd(qMin(drawing.room(), kMaxDrawing), Evidence::Header);
    file->examined = 16;
    return true;
}

bool carveFont(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek font(reader, start);
    const bool isCollection = font.is(0, "ttcf");
    qint64 end = 0;
    if (isCollection) {
        const int fonts = qMin<int>(int(font.be32(8)), 64);
        for (int i = 0; i < fonts; ++i)
            end = qMax(end, endOfFont(font, font.be32(12 + 4 * i)));
    } else {
        end = endOfFont(font, 0);
    }
    if (end == 0)
        return false;
    file->setKind(isCollection ? "ttc" : font.is(0, "OTTO") ? "otf" : "ttf");
    file->inside = Inside::Noise;
    const qint64 padded = (end + 3) / 4 * 4; // as every table is
    if (font.isZero(end, padded - end))
        end = padded;
    file->setEnd(qMin(end, font.room()), font.has(0, end) ? Evidence::End : Evidence::Structure);
    return true;
}

bool carveWebFont(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek font(reader, start);
    const qint64 end = font.be32(8);
    const int tables = font.be16(12);
    if (tables < 1 || tables > kMaxTables || end < 44 || font.be16(14) != 0)
        return false;
    file->setKind(font.is(0, "wOF2") ? "woff2" : "woff");
    file->inside = Inside::Noise;
    file->setEnd(qMin(end, font.room()), font.has(0, end) ? Evidence::End : Evidence::Structure);
    return true;
}

bool carveCapture(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek capture(reader, start);
    if (capture.le16(4) != 2 || capture.le16(6) != 4)
        return false;
    file->setKind("pcap");
    const qint64 longest = qMax<qint64>(65535, qMin<qint64>(capture.le32(16), 1 << 20));
    qint64 at = 24;
    int packets = 0;
    for (; packets < kMaxPackets && capture.has(at, 16); ++packets) {
        const qint64 length = capture.le32(at + 8);
        if (capture.le32(at) == 0 || length == 0 || length > longest ||
            length > capture.le32(at + 12) || !capture.has(at + 16, length))
            break;
        at += 16 + length;
    }
    setPaddedEnd(capture, at, file);
    return true;
}

} // namespace services::recoveryd
