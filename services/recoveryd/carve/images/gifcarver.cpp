#include "recoveryd/carve/images/imagecarvers.h"

#include <QtEndian>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxGif = qint64(128) * 1024 * 1024;
constexpr qint64 kScreenSize = 13;
constexpr qint64 kDescriptorSize = 10;
constexpr uchar kExtension = 0x21;
constexpr uchar kImage = 0x2C;
constexpr uchar kTrailer = 0x3B;

qint64 colorTableSize(uchar packed)
{
    return (packed & 0x80) ? 3 * (qint64(2) << (packed & 7)) : 0;
}

/// Steps over a chain of sub-blocks; -1 where it leaves the limit.
qint64 skipSubBlocks(WindowReader &reader, qint64 at, qint64 limit)
{
    while (at < limit) {
        const uchar *const length = reader.at(at, 1);
        if (!length)
            return -1;
        at += 1 + *length;
        if (*length == 0)
            return at;
    }
    return -1;
}

/// The end of the block at `at`; -1 if it is none or is cut off.
qint64 skipBlock(WindowReader &reader, qint64 at, qint64 limit)
{
    const uchar *const kind = reader.at(at, 1);
    if (!kind)
        return -1;
    if (*kind == kExtension)
        return skipSubBlocks(reader, at + 2, limit);
    const uchar *const image = *kind == kImage ? reader.at(at, kDescriptorSize) : nullptr;
    if (!image)
        return -1;
    const qint64 data = at + kDescriptorSize + colorTableSize(image[9]);
    const uchar *const codeSize = reader.at(data, 1);
    if (!codeSize || *codeSize < 1 || *codeSize > 11)
        return -1;
    return skipSubBlocks(reader, data + 1, limit);
}

} // namespace

bool carveGif(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const uchar *const screen = reader.at(start, kScreenSize);
    if (!screen || (screen[4] != '7' && screen[4] != '9') || screen[5] != 'a' ||
        qFromLittleEndian<quint16>(screen + 6) == 0 || qFromLittleEndian<quint16>(screen + 8) == 0)
        return false;
    file->setKind("gif");
    file->evidence = Evidence::Header;
    const qint64 limit = qMin(reader.end(), start + kMaxGif);
    qint64 at = start + kScreenSize + colorTableSize(screen[10]);
    for (qint64 next = at; next >= 0; next = skipBlock(reader, at, limit)) {
        if (next > at)
            file->evidence = Evidence::Structure;
        at = next;
        const uchar *const kind = reader.at(at, 1);
        if (kind && *kind == kTrailer && file->evidence == Evidence::Structure) {
            file->evidence = Evidence::End;
            ++at;
            break;
        }
    }
    file->length = qMin(at, limit) - start;
    file->examined = file->length;
    return true;
}

} // namespace services::recoveryd
