#include "recoveryd/carve/media/mediacarvers.h"
#include "recoveryd/carve/peek.h"

namespace services::recoveryd {

namespace {

constexpr int kMaxFrames = 10000000;
constexpr int kSureFrames = 8;
constexpr int kSilkLongest = 2000;

/// A frame header of MPEG audio (ISO/IEC 11172-3, 13818-3).
struct Mp3Frame
{
    qint64 length = 0; ///< 0: none.
    quint32 kind = 0;  ///< What all frames of a file share.
    int sideInfo = 0;
};

Mp3Frame mp3Frame(quint32 header)
{
    static const int rates1[] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    static const int rates2[] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    static const int samples[] = {44100, 48000, 32000};
    Mp3Frame frame;
    const int version = header >> 19 & 3; // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
    const int rate = header >> 12 & 15;
    const int sampling = header >> 10 & 3;
    if (header >> 21 != 0x7FF || version == 1 || (header >> 17 & 3) != 1 || rate == 0 ||
        rate == 15 || sampling == 3)
        return frame;
    const bool isFirst = version == 3;
    const int hertz = samples[sampling] >> (isFirst ? 0 : version == 2 ? 1 : 2);
    const int kilobits = isFirst ? rates1[rate] : rates2[rate];
    frame.length = (isFirst ? 144000 : 72000) * kilobits / hertz + (header >> 9 & 1);
    frame.kind = header & 0xFFFE0C00;
    const bool isMono = (header >> 6 & 3) == 3;
    frame.sideInfo = isFirst ? (isMono ? 17 : 32) : (isMono ? 9 : 17);
    return frame;
}

/// Length of an ID3v2 tag at `at`; 0 if there is none.
qint64 id3Length(const Peek &file, qint64 at)
{
    if (!file.is(at, "ID3") || file.u8(at + 3) > 4)
        return 0;
    qint64 length = 0;
    for (int i = 6; i < 10; ++i) {
        if (file.u8(at + i) & 0x80)
            return 0;
        length = length << 7 | file.u8(at + i);
    }
    return 10 + length + ((file.u8(at + 5) & 0x10) != 0 ? 10 : 0);
}

/// Behind tags that follow the last frame.
qint64 behindTags(const Peek &file, qint64 at)
{
    if (file.is(at, "APETAGEX"))
        at += 32 + qint64(file.le32(at + 12));
    return file.is(at, "TAG") && file.has(at, 128) ? at + 128 : at;
}

/// The number of frames that the first frame of some files tells; 0 if it does not.
qint64 toldFrames(const Peek &file, qint64 at, const Mp3Frame &frame)
{
    const qint64 tag = at + 4 + frame.sideInfo;
    if ((!file.is(tag, "Xing") && !file.is(tag, "Info")) || (file.be32(tag + 4) & 1) == 0)
        return 0;
    return qint64(file.be32(tag + 8)) + 1;
}

} // namespace

bool carveMp3(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek mp3(reader, start);
    const qint64 tag = id3Length(mp3, 0);
    qint64 at = tag;
    while (at < tag + 4096 && mp3.has(at, 4) && mp3.u8(at) == 0) // padding behind the tag
        ++at;
    const Mp3Frame first = mp3Frame(mp3.be32(at));
    if (first.length == 0)
        return false;
    const qint64 told = toldFrames(mp3, at, first);
    int frames = 0;
    while (frames < kMaxFrames) {
        const Mp3Frame frame = mp3Frame(mp3.be32(at));
        if (frame.length == 0 || frame.kind != first.kind || !mp3.has(at, frame.length))
            break;
        at += frame.length;
        ++frames;
    }
    if (frames < (tag > 0 ? 2 : kSureFrames))
        return false;
    file->setKind("mp3");
    const qint64 end = behindTags(mp3, at);
    if (end > at || frames == told)
        file->setEnd(end);
    else
        setPaddedEnd(mp3, at, file);
    // Frames look alike: what has no tag in front may be the rest of a file.
    if (tag == 0 && frames != told)
        file->inside = Inside::Noise;
    return true;
}

bool carveAac(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek aac(reader, start);
    const quint32 kind = aac.be32(0) & 0xFFFFFDC0; // without the private bit
    qint64 at = 0;
    int frames = 0;
    while (frames < kMaxFrames && (aac.be32(at) & 0xFFFFFDC0) == kind) {
        const qint64 length = (aac.be32(at + 3) >> 13 & 0x7FF) | qint64(aac.u8(at + 3) & 3) << 11;
        if (length < 9 || !aac.has(at, length))
            break;
        at += length;
        ++frames;
    }
    if (frames < kSureFrames)
        return false;
    file->setKind("aac");
    setPaddedEnd(aac, behindTags(aac, at), file);
    return true;
}

bool carveAmr(WindowReader &reader, qint64 start, CarvedFile *file)
{
    static const int narrow[] = {12, 13, 15, 17, 19, 20, 26, 31, 5, 0, 0, 0, 0, 0, 0, 0};
    static const int wide[] = {17, 23, 32, 36, 40, 46, 50, 58, 60, 5, 0, 0, 0, 0, 0, 0};
    const Peek amr(reader, start);
    const bool isWide = amr.is(5, "-WB\n");
    if (!isWide && !amr.is(5, "\n"))
        return false;
    file->setKind("amr");
    qint64 at = isWide ? 9 : 6;
    int frames = 0;
    for (; frames < kMaxFrames && amr.has(at, 1); ++frames) {
        const quint8 head = amr.u8(at);
        const int type = head >> 3 & 15;
        const int length = isWide ? wide[type] : narrow[type];
        // Without the quality bit a frame is damaged, and a zero is the end of the file.
        if ((head & 0x83) != 0 || head == 0 || (length == 0 && type != 15) ||
            !amr.has(at, 1 + length))
            break;
        at += 1 + length;
    }
    if (frames < 1)
        file->setEnd(at, Evidence::Header);
    else
        setPaddedEnd(amr, at, file);
    return true;
}

bool carveSilk(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek silk(reader, start);
    file->setKind("silk");
    qint64 at = silk.u8(0) == 0x02 ? 10 : 9;
    int frames = 0;
    bool hasEnd = false;
    for (; frames < kMaxFrames; ++frames) {
        const int length = silk.le16(at);
        hasEnd = length == 0xFFFF && silk.has(at, 2);
        if (hasEnd || length == 0 || length > kSilkLongest || !silk.has(at, 2 + length))
            break;
        at += 2 + length;
    }
    if (hasEnd)
        file->setEnd(at + 2);
    else if (frames < 1)
        file->setEnd(at, Evidence::Header);
    else
        setPaddedEnd(silk, at, file);
    return true;
}

} // namespace services::recoveryd
