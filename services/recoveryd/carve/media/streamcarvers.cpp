#include "recoveryd/carve/media/mediacarvers.h"
#include "recoveryd/carve/peek.h"

namespace services::recoveryd {

namespace {

constexpr qint64 kSector = 512;
constexpr qint64 kMaxStream = qint64(64) << 30;
constexpr int kMaxHeaders = 256;

} // namespace

bool isPaddedFrom(const Peek &file, qint64 end)
{
    const qint64 used = (file.start() + end) % kSector;
    const qint64 rest = used == 0 ? 0 : qMin(kSector - used, file.room() - end);
    return file.isZero(end, rest);
}

void setPaddedEnd(const Peek &file, qint64 end, CarvedFile *carved)
{
    carved->setEnd(end, isPaddedFrom(file, end) ? Evidence::End : Evidence::Structure);
    // It may just be the end of one of its pieces.
    if ((file.start() + end) % kSector == 0)
        carved->inside = Inside::Frames;
}

bool carveFlv(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek flv(reader, start);
    if (flv.be32(5) != 9 || (flv.u8(4) & ~5) != 0)
        return false;
    file->setKind("flv");
    qint64 at = 13; // behind the header and the length of no tag
    int tags = 0;
    while (at < kMaxStream) {
        const int type = flv.u8(at) & 0x1F;
        const qint64 length = flv.be24(at + 1);
        if ((type != 8 && type != 9 && type != 18) || flv.be24(at + 8) != 0 ||
            flv.be32(at + 11 + length) != 11 + length)
            break;
        at += 15 + length;
        ++tags;
    }
    if (tags < 2)
        file->setEnd(at, Evidence::Header);
    else
        setPaddedEnd(flv, at, file);
    return true;
}

bool carveAsf(WindowReader &reader, qint64 start, CarvedFile *file)
{
    static const char properties[] = "\xA1\xDC\xAB\x8C\x47\xA9\xCF\x11";
    static const char stream[] = "\x91\x07\xDC\xB7\xB7\xA9\xCF\x11";
    static const char video[] = "\xC0\xEF\x19\xBC\x4D\x5B\xCF\x11";
    const Peek asf(reader, start);
    const qint64 header = qint64(asf.le64(16) & 0xFFFFFFFF);
    const int objects = qMin<int>(int(asf.le32(24) & 0xFFFF), kMaxHeaders);
    if (header < 30 || objects < 1)
        return false;
    qint64 size = 0;
    bool hasVideo = false;
    qint64 at = 30;
    for (int i = 0; i < objects && at < header; ++i) {
        const qint64 length = qint64(asf.le64(at + 16) & 0xFFFFFFFF);
        if (length < 24)
            break;
        if (asf.is(at, properties))
            size = qint64(asf.le64(at + 40) & 0xFFFFFFFFFF);
        if (asf.is(at, stream) && asf.is(at + 24, video))
            hasVideo = true;
        at += length;
    }
    file->setKind(hasVideo ? "wmv" : "wma");
    file->inside = Inside::Frames;
    const qint64 data = header + qint64(asf.le64(header + 16) & 0xFFFFFFFFFF);
    const bool isThere = size >= data && asf.has(0, size) && data > header;
    file->setEnd(isThere ? size : qMin(qMax(size, header), asf.room()),
                 isThere ? Evidence::End : Evidence::Structure);
    return true;
}

bool carveProgramStream(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek mpg(reader, start);
    qint64 at = 0;
    int packets = 0;
    bool hasEnd = false;
    while (at < kMaxStream && mpg.u8(at) == 0 && mpg.be24(at + 1) >= 0x1B9 &&
           mpg.be24(at + 1) <= 0x1FF) {
        const int code = mpg.u8(at + 3);
        const bool isNew = mpg.u8(at + 4) >> 6 == 1;
        if (code == 0xB9) {
            at += 4;
            hasEnd = true;
            break;
        }
        const qint64 length = code != 0xBA ? 6 + mpg.be16(at + 4)
                              : isNew      ? 14 + (mpg.u8(at + 13) & 7)
                                           : 12;
        if (!mpg.has(at, length))
            break;
        at += length;
        ++packets;
    }
    if (packets < 4)
        return false;
    file->setKind("mpg");
    file->inside = Inside::Frames;
    if (hasEnd)
        file->setEnd(at);
    else
        setPaddedEnd(mpg, at, file);
    return true;
}

bool carveTransportStream(WindowReader &reader, qint64 start, CarvedFile *file)
{
    constexpr qint64 kPacket = 188;
    constexpr int kLeast = 20;
    const Peek ts(reader, start);
    // The tables of the stream come first.
    if ((ts.be16(1) & 0x1FFF) > 0x11)
        return false;
    qint64 at = 0;
    while (at < kMaxStream && ts.u8(at) == 0x47 && ts.has(at, kPacket))
        at += kPacket;
    if (at < kLeast * kPacket)
        return false;
    file->setKind("ts");
    file->inside = Inside::Frames;
    setPaddedEnd(ts, at, file);
    return true;
}

} // namespace services::recoveryd
