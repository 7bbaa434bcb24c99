#include "recoveryd/carve/archives/archivecarvers.h"

#include "recoveryd/carve/check/decoding.h"

#include <QByteArray>

namespace services::recoveryd {

namespace {

constexpr qint64 kBlock = 512;
constexpr qint64 kTarRecord = 20 * kBlock;
constexpr int kMaxMembers = 10000000;
constexpr qint64 kMaxArchive = qint64(1) << 40;

/// A variable-length number of RAR 5; false at its end if it is none.
bool readNumber(const Peek &file, qint64 *at, quint64 *value)
{
    *value = 0;
    for (int shift = 0; shift < 63; shift += 7) {
        const quint8 byte = file.u8(*at);
        ++*at;
        *value |= quint64(byte & 0x7F) << shift;
        if ((byte & 0x80) == 0)
            return true;
    }
    return false;
}

/// The end of the block at `*at` of RAR 4; `*isLast` at the end block.
bool stepRar4(const Peek &rar, qint64 *at, bool *isLast)
{
    const int type = rar.u8(*at + 2);
    const int flags = rar.le16(*at + 3);
    qint64 length = rar.le16(*at + 5);
    if (type < 0x72 || type > 0x7B || length < 7)
        return false;
    if ((flags & 0x8000) != 0 || type == 0x74)
        length += rar.le32(*at + 7);
    if (type == 0x74 && (flags & 0x100) != 0)
        length += qint64(rar.le32(*at + 32)) << 32;
    if (!rar.has(*at, length))
        return false;
    *isLast = type == 0x7B;
    *at += length;
    return true;
}

/// The same for RAR 5; its headers have checksums.
bool stepRar5(const Peek &rar, qint64 *at, bool *isLast)
{
    qint64 pos = *at + 4;
    quint64 size = 0;
    quint64 type = 0;
    quint64 flags = 0;
    quint64 extra = 0;
    quint64 data = 0;
    if (!readNumber(rar, &pos, &size) || size < 2 || size > 2 * 1024 * 1024)
        return false;
    const qint64 headerEnd = pos + qint64(size);
    DecodingBudget budget;
    quint32 crc = 0;
    if (crcOf(rar, *at + 4, headerEnd - *at - 4, &budget, &crc) != Decoded::Good ||
        crc != rar.le32(*at) || !readNumber(rar, &pos, &type) || !readNumber(rar, &pos, &flags) ||
        ((flags & 1) != 0 && !readNumber(rar, &pos, &extra)) ||
        ((flags & 2) != 0 && !readNumber(rar, &pos, &data)) || data > quint64(kMaxArchive) ||
        !rar.has(headerEnd, qint64(data)))
        return false;
    *isLast = type == 5;
    *at = headerEnd + qint64(data);
    return true;
}

qint64 octal(const Peek &tar, qint64 at, int length)
{
    if ((tar.u8(at) & 0x80) != 0) // a binary number
        return qint64(tar.be64(at + length - 8) & 0xFFFFFFFFFF);
    qint64 value = 0;
    for (int i = 0; i < length; ++i) {
        const quint8 c = tar.u8(at + i);
        if (c >= '0' && c <= '7')
            value = value * 8 + (c - '0');
        else if (c != ' ' || value != 0)
            break;
    }
    return value;
}

bool isTarHeader(const Peek &tar, qint64 at)
{
    const uchar *const header = tar.bytes(at, kBlock);
    if (!header)
        return false;
    qint64 sum = 8 * ' ';
    for (int i = 0; i < kBlock; ++i)
        sum += i >= 148 && i < 156 ? 0 : header[i];
    return sum > 8 * ' ' && octal(tar, at + 148, 8) == sum;
}

} // namespace

bool carveSevenZip(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek archive(reader, start);
    DecodingBudget budget;
    quint32 crc = 0;
    const quint64 offset = archive.le64(12);
    const quint64 length = archive.le64(20);
    if (crcOf(archive, 12, 20, &budget, &crc) != Decoded::Good || crc != archive.le32(8) ||
        offset > quint64(kMaxArchive) || length > quint64(kMaxArchive))
        return false;
    file->setKind("7z");
    const qint64 directory = 32 + qint64(offset);
    const qint64 end = directory + qint64(length);
    const Decoded sum = crcOf(archive, directory, qint64(length), &budget, &crc);
    const bool isWhole =
        sum == Decoded::Unknown || (sum == Decoded::Good && crc == archive.le32(28));
    file->setEnd(qMin(end, archive.room()), isWhole ? Evidence::End : Evidence::Structure);
    return true;
}

bool carveRar(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek rar(reader, start);
    const bool isFifth = rar.is(6, "\1\0");
    if (!isFifth && rar.u8(6) != 0)
        return false;
    file->setKind("rar");
    qint64 at = isFifth ? 8 : 7;
    bool isLast = false;
    int blocks = 0;
    while (blocks < kMaxMembers && !isLast &&
           (isFifth ? stepRar5(rar, &at, &isLast) : stepRar4(rar, &at, &isLast)))
        ++blocks;
    file->setEnd(at, isLast ? Evidence::End : blocks > 1 ? Evidence::Structure : Evidence::Header);
    return true;
}

bool carveTar(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek tar(reader, start);
    qint64 at = 0;
    int members = 0;
    while (members < kMaxMembers && isTarHeader(tar, at)) {
        const qint64 size = octal(tar, at + 124, 12);
        const quint8 type = tar.u8(at + 156);
        const bool hasData = type != '1' && type != '2' && type != '5';
        const qint64 end = at + kBlock + (hasData ? (size + kBlock - 1) / kBlock * kBlock : 0);
        if (!tar.has(0, end))
            break;
        at = end;
        ++members;
    }
    if (members == 0 && !isTarHeader(tar, 0))
        return false;
    file->setKind("tar");
    file->inside = Inside::Files;
    file->holdsText = true;
    if (!tar.isZero(at, 2 * kBlock)) {
        file->setEnd(at > 0 ? at : kBlock, members > 0 ? Evidence::Structure : Evidence::Header);
        return true;
    }
    const qint64 record = (at + 2 * kBlock + kTarRecord - 1) / kTarRecord * kTarRecord;
    file->setEnd(tar.isZero(at, record - at) ? record : at + 2 * kBlock);
    return true;
}

bool carveAr(WindowReader &reader, qint64 start, CarvedFile *file)
{
    constexpr int kHeader = 60;
    const Peek ar(reader, start);
    qint64 at = 8;
    int members = 0;
    for (; members < kMaxMembers && ar.is(at + 58, "`\n"); ++members) {
        const uchar *const digits = ar.bytes(at + 48, 10);
        const qint64 size =
            digits ? QByteArray(reinterpret_cast<const char *>(digits), 10).trimmed().toLongLong()
                   : -1;
        if (size < 0 || !ar.has(at, kHeader + size))
            break;
        at += kHeader + size;
        if ((at & 1) != 0 && ar.u8(at) == '\n') // the padding of the last one may be missing
            ++at;
    }
    if (members == 0)
        return false;
    file->setKind(ar.is(8, "debian-binary") ? "deb" : "a");
    file->inside = Inside::Files;
    file->setEnd(at, ar.u8(at) == 0 ? Evidence::End : Evidence::Structure);
    return true;
}

bool carveCab(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek cab(reader, start);
    const qint64 end = cab.le32(8);
    const int version = cab.le16(24);
    if (end < 44 || version != 0x0103 || cab.le32(16) > end || cab.le16(26) == 0)
        return false;
    file->setKind("cab");
    file->inside = Inside::Files;
    file->setEnd(qMin(end, cab.room()), cab.has(0, end) ? Evidence::End : Evidence::Structure);
    return true;
}

bool carveIso(WindowReader &reader, qint64 start, CarvedFile *file)
{
    constexpr qint64 kDescriptor = 32768;
    const Peek iso(reader, start);
    const qint64 block = iso.le16(kDescriptor + 128);
    const qint64 blocks = iso.le32(kDescriptor + 80);
    if (iso.u8(kDescriptor) > 3 || block < 512 || block > 32768 ||
        blocks != qint64(iso.be32(kDescriptor + 84)) || blocks < 17)
        return false;
    file->setKind("iso");
    file->inside = Inside::Files;
    file->holdsText = true;
    const qint64 end = block * blocks;
    file->setEnd(qMin(end, iso.room()), iso.has(0, end) ? Evidence::End : Evidence::Structure);
    return true;
}

} // namespace services::recoveryd
