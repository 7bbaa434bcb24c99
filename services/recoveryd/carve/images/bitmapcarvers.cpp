#include "recoveryd/carve/images/imagecarvers.h"
#include "recoveryd/carve/peek.h"

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxSide = 100000;
constexpr qint64 kMaxBitmap = qint64(1) << 30;
constexpr qint64 kBmpSlack = 64 * 1024;
constexpr int kMaxIcons = 64;

bool isDepth(int bits)
{
    return bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16 || bits == 24 ||
           bits == 32;
}

/// Ends behind rows that are stored in PackBits, each with its length in a table before them.
qint64 endOfPackedRows(const Peek &psd, qint64 table, qint64 rows, int lengthSize)
{
    qint64 end = table + rows * lengthSize;
    for (qint64 i = 0; i < rows; ++i)
        end += lengthSize == 4 ? qint64(psd.be32(table + 4 * i)) : psd.be16(table + 2 * i);
    return end;
}

} // namespace

bool carveBmp(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek bmp(reader, start);
    const qint64 told = bmp.le32(2);
    const qint64 data = bmp.le32(10);
    const qint64 header = bmp.le32(14);
    const qint64 width = qint32(bmp.le32(18));
    const qint64 height = qAbs(qint64(qint32(bmp.le32(22))));
    const int bits = bmp.le16(28);
    const quint32 packing = bmp.le32(30);
    if (bmp.le32(6) != 0 || header < 40 || header > 124 || data < 14 + header ||
        data > 14 + header + 2048 || width <= 0 || width > kMaxSide || height == 0 ||
        height > kMaxSide || bmp.le16(26) != 1 || !isDepth(bits) || packing > 6)
        return false;
    file->setKind("bmp");
    file->inside = Inside::Noise;
    const bool isPlain = packing == 0 || packing == 3 || packing == 6;
    const qint64 rows = (width * bits + 31) / 32 * 4 * height;
    const qint64 least = data + (isPlain ? rows : qint64(bmp.le32(34)));
    const qint64 end = told >= least && told <= least + kBmpSlack ? told : least;
    if (end > kMaxBitmap)
        return false;
    const bool isThere = bmp.has(0, end);
    file->setEnd(qMin(end, bmp.room()), isThere ? Evidence::End : Evidence::Structure);
    return true;
}

bool carveIcon(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek icon(reader, start);
    const int count = icon.le16(4);
    if (count < 1 || count > kMaxIcons)
        return false;
    qint64 end = 6 + 16 * count;
    for (int i = 0; i < count; ++i) {
        const qint64 entry = 6 + 16 * i;
        const qint64 length = icon.le32(entry + 8);
        const qint64 offset = icon.le32(entry + 12);
        if (icon.u8(entry + 3) != 0 || length < 40 || length > 4 * 1024 * 1024 ||
            offset < 6 + 16 * count || (!icon.is(offset, "\x89PNG") && icon.le32(offset) != 40))
            return false;
        end = qMax(end, offset + length);
    }
    file->setKind(icon.u8(2) == 1 ? "ico" : "cur");
    file->setEnd(qMin(end, icon.room()), icon.has(0, end) ? Evidence::End : Evidence::Structure);
    return true;
}

bool carvePsd(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek psd(reader, start);
    const bool isLarge = psd.be16(4) == 2;
    const qint64 channels = psd.be16(12);
    const qint64 height = psd.be32(14);
    const qint64 width = psd.be32(18);
    const qint64 depth = psd.be16(22);
    if ((!isLarge && psd.be16(4) != 1) || !psd.isZero(6, 6) || channels < 1 || channels > 56 ||
        height < 1 || height > 300000 || width < 1 || width > 300000 ||
        (depth != 1 && depth != 8 && depth != 16 && depth != 32))
        return false;
    file->setKind(isLarge ? "psb" : "psd");
    file->inside = Inside::Frames;
    qint64 at = 26;
    at += 4 + qint64(psd.be32(at));                                                     // colours
    at += 4 + qint64(psd.be32(at));                                                     // resources
    at += isLarge ? 8 + qint64(psd.be64(at) & 0xFFFFFFFFFF) : 4 + qint64(psd.be32(at)); // layers
    const int packing = psd.be16(at);
    if (!psd.has(0, at + 2) || packing > 3) {
        file->setEnd(qMin(at, psd.room()), Evidence::Header);
        return true;
    }
    qint64 end = at + 2;
    if (packing == 0)
        end += channels * height * ((width * depth + 7) / 8);
    else if (packing == 1)
        end = endOfPackedRows(psd, end, channels * height, isLarge ? 4 : 2);
    const bool isKnown = packing <= 1 && psd.has(0, end);
    file->setEnd(qMin(end, psd.room()), isKnown ? Evidence::End : Evidence::Structure);
    return true;
}

} // namespace services::recoveryd
