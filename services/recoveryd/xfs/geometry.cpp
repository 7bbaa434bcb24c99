#include "recoveryd/xfs/geometry.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/xfs/view.h"

#include <cstring>

namespace services::recoveryd::xfs {

namespace {

constexpr quint32 kMagic = 0x58465342U;      // XFSB
constexpr quint32 kFreeMagic = 0x58414746U;  // XAGF
constexpr quint32 kInodeMagic = 0x58414749U; // XAGI
constexpr quint32 kOldFileTypes = 0x200;     // features2, version 4
constexpr quint32 kFileTypes = 0x1;          // incompatible features, version 5
constexpr quint32 kSparseChunks = 0x2;
constexpr quint32 kMetaUuid = 0x4;
constexpr int kMaxDirectoryBlock = 64 * 1024;

bool isBetween(quint32 value, quint32 least, quint32 most)
{
    return value >= least && value <= most && isPowerOfTwo(value);
}

bool isSound(const View &view, const Geometry &geometry)
{
    const quint32 perBlock = geometry.blockSize / qMax(1U, geometry.inodeSize);
    return isBetween(geometry.blockSize, 512, 65536) &&
           isBetween(geometry.sectorSize, 512, 32768) && isBetween(geometry.inodeSize, 256, 2048) &&
           geometry.inodeSize <= geometry.blockSize &&
           (1U << (view.u8(120) & 31)) == geometry.blockSize && view.u16(106) == perBlock &&
           geometry.inodesPerBlockLog < 16 && (1U << geometry.inodesPerBlockLog) == perBlock &&
           geometry.agBlocks >= 5 && geometry.agBlockLog <= 31 &&
           (1ULL << geometry.agBlockLog) >= geometry.agBlocks && geometry.agCount >= 1 &&
           geometry.blocks <= (1ULL << 51) &&
           geometry.blocks <= quint64(geometry.agCount) * geometry.agBlocks &&
           geometry.blocks > quint64(geometry.agCount - 1) * geometry.agBlocks &&
           geometry.directoryBlockSize <= kMaxDirectoryBlock &&
           geometry.size() / geometry.blockSize == qint64(geometry.blocks);
}

bool readAt(const MediaReader &media, qint64 offset, Geometry *geometry)
{
    return offset >= 0 && offset < media.size() &&
           parseSuperblock(media.read(offset, kSuperblockSize), geometry);
}

/// A copy that stands where its own numbers say a group begins.
bool readCopy(const MediaReader &media, qint64 offset, Geometry *geometry)
{
    Geometry found;
    if (!readAt(media, offset, &found))
        return false;
    const qint64 group = groupAt(media, offset, found);
    if (group < 0 || offset != found.agStart(quint32(group)))
        return false;
    *geometry = found;
    return true;
}

/// Where mkfs puts the second group for a volume of this size: most have 4 groups, striped ones
/// more, large ones groups of nearly 1 TiB.
bool guessCopies(const MediaReader &media, Geometry *geometry)
{
    constexpr int kMostGroups = 64;
    constexpr qint64 kLargestGroup = qint64(1) << 40;
    for (qint64 blockSize : {4096, 1024, 2048, 512, 65536, 8192, 16384, 32768}) {
        const qint64 blocks = media.size() / blockSize;
        for (qint64 groups = 2; groups <= kMostGroups; ++groups)
            if (readCopy(media, (blocks + groups - 1) / groups * blockSize, geometry))
                return true;
        if (readCopy(media, kLargestGroup - blockSize, geometry))
            return true;
    }
    return false;
}

bool searchCopies(const MediaReader &media, Geometry *geometry)
{
    constexpr qint64 kPiece = 4 * 1024 * 1024;
    constexpr qint64 kMostRead = qint64(16) << 30;
    constexpr int kStep = 512;
    const qint64 end = qMin(media.size(), kMostRead);
    for (qint64 at = 0; at < end && !media.isGone(); at += kPiece) {
        const QByteArray piece = media.read(at, qMin(kPiece, end - at));
        for (int i = 0; i + kStep <= piece.size(); i += kStep)
            if (std::memcmp(piece.constData() + i, "XFSB", 4) == 0 &&
                readCopy(media, at + i, geometry))
                return true;
    }
    return false;
}

} // namespace

quint32 Geometry::blocksOf(quint32 ag) const
{
    if (ag >= agCount)
        return 0;
    return ag + 1 < agCount ? agBlocks : quint32(blocks - quint64(ag) * agBlocks);
}

qint64 Geometry::offsetInAg(quint32 ag, quint32 block) const
{
    return block < blocksOf(ag) ? agStart(ag) + qint64(block) * blockSize : -1;
}

qint64 Geometry::offsetOfBlock(quint64 block) const
{
    const quint64 ag = block >> agBlockLog;
    return ag < agCount ? offsetInAg(quint32(ag), quint32(block & ((1ULL << agBlockLog) - 1))) : -1;
}

qint64 Geometry::offsetOfInode(quint64 number) const
{
    const qint64 block = offsetOfBlock(number >> inodesPerBlockLog);
    const quint64 slot = number & ((1ULL << inodesPerBlockLog) - 1);
    return block < 0 ? -1 : block + qint64(slot) * inodeSize;
}

quint64 Geometry::inodeAt(qint64 offset) const
{
    const qint64 block = offset / blockSize;
    const quint32 inAg = quint32(block % agBlocks);
    const quint64 slot = quint64(offset % blockSize / inodeSize);
    return inodeNumber(quint32(block / agBlocks), inAg << inodesPerBlockLog) + slot;
}

quint64 Geometry::inodeNumber(quint32 ag, quint32 numberInAg) const
{
    return (quint64(ag) << (agBlockLog + inodesPerBlockLog)) + numberInAg;
}

bool parseSuperblock(const QByteArray &bytes, Geometry *geometry)
{
    const View view(bytes);
    if (bytes.size() < kSuperblockSize || view.u32(0) != kMagic)
        return false;
    const int version = view.u16(100) & 0xF;
    if (version != 4 && version != 5)
        return false;
    Geometry found;
    found.isV5 = version == 5;
    found.blockSize = view.u32(4);
    found.blocks = view.u64(8);
    found.userUuid = view.bytes(32, 16);
    found.logStart = view.u64(48);
    found.rootInode = view.u64(56);
    found.ownInodes = {view.u64(64), view.u64(72), view.u64(160), view.u64(168)};
    if (found.isV5)
        found.ownInodes.append(view.u64(232));
    found.agBlocks = view.u32(84);
    found.agCount = view.u32(88);
    found.logBlocks = view.u32(96);
    found.sectorSize = view.u16(102);
    found.inodeSize = view.u16(104);
    const QByteArray label = view.bytes(108, 12);
    found.label = QString::fromUtf8(label.constData(), int(qstrnlen(label.constData(), 12)));
    found.inodesPerBlockLog = view.u8(123);
    found.agBlockLog = view.u8(124);
    const int directoryLog = qMin<int>(view.u8(192), 16);
    found.directoryBlockSize =
        int(qMin(quint64(found.blockSize) << directoryLog, quint64(1) << 20));
    const quint32 incompatible = found.isV5 ? view.u32(216) : 0;
    found.hasFileTypes =
        found.isV5 ? (incompatible & kFileTypes) != 0 : (view.u32(200) & kOldFileTypes) != 0;
    found.hasSparseChunks = (incompatible & kSparseChunks) != 0;
    found.uuid = (incompatible & kMetaUuid) != 0 ? view.bytes(248, 16) : found.userUuid;
    if (!isSound(view, found))
        return false;
    if (found.offsetOfInode(found.rootInode) < 0)
        found.rootInode = 0; // as mkfs leaves it in most copies
    *geometry = found;
    return true;
}

qint64 groupAt(const MediaReader &media, qint64 offset, const Geometry &geometry)
{
    const qint64 sector = geometry.sectorSize;
    const QByteArray heads = media.read(offset + sector, 2 * sector);
    const View view(heads);
    for (const auto &head :
         {std::make_pair(0, kFreeMagic), std::make_pair(int(sector), kInodeMagic)})
        if (view.u32(head.first) == head.second && view.u32(head.first + 8) < geometry.agCount)
            return view.u32(head.first + 8);
    return -1;
}

bool findGeometry(const MediaReader &media, Geometry *geometry)
{
    return readAt(media, 0, geometry) || guessCopies(media, geometry) ||
           searchCopies(media, geometry);
}

} // namespace services::recoveryd::xfs
