#include "recoveryd/xfs/inode.h"

#include "recoveryd/devices/crc32c.h"

namespace services::recoveryd::xfs {

namespace {

constexpr quint16 kMagic = 0x494E; // IN
constexpr quint16 kRealtime = 0x1; // flags
constexpr quint64 kBigTime = 0x8;  // flags2
constexpr quint64 kLargeCounts = 0x10;
constexpr quint64 kOwnFile = 0x20;
constexpr int kChecksum = 100;

/// Seconds and nanoseconds since 1970, or, with the flag, nanoseconds since 1901.
qint64 timeAt(const View &view, int place, bool isBig)
{
    if (isBig)
        return qint64(view.u64(place) / 1000000) - (qint64(1) << 31) * 1000;
    const quint32 nanoseconds = view.u32(place + 4);
    return qint64(qint32(view.u32(place))) * 1000 + qMin(nanoseconds, 999999999U) / 1000000;
}

ForkFormat formatOf(quint8 number)
{
    return number < quint8(ForkFormat::Other) ? ForkFormat(number) : ForkFormat::Other;
}

int coreSize(const View &view)
{
    return view.u8(4) >= 3 ? kCoreSize : kOldCoreSize;
}

} // namespace

quint8 Inode::fileType() const
{
    return isRegular() ? kTypeFile : isDirectory() ? kTypeFolder : quint8(0);
}

bool isInode(const View &view)
{
    return view.u16(0) == kMagic && view.u8(4) >= 1 && view.u8(4) <= 3;
}

void parseCore(const View &view, Inode *inode)
{
    const quint8 version = view.u8(4);
    const quint64 flags = version >= 3 ? view.u64(120) : 0;
    inode->mode = view.u16(2);
    inode->format = formatOf(view.u8(5));
    inode->links = version == 1 ? view.u16(6) : view.u32(16);
    inode->modifiedMs = timeAt(view, 40, (flags & kBigTime) != 0);
    inode->changedMs = timeAt(view, 48, (flags & kBigTime) != 0);
    inode->size = view.u64(56);
    inode->blocks = view.u64(64);
    inode->extents = (flags & kLargeCounts) != 0 ? view.u64(24) : view.u32(76);
    inode->forkSize = view.u8(82) * 8;
    inode->generation = view.u32(92);
    inode->lsn = version >= 3 ? view.u64(112) : 0;
    inode->isSpecial = (view.u16(90) & kRealtime) != 0 || (flags & kOwnFile) != 0;
}

bool parseInode(const View &view, Inode *inode)
{
    if (!isInode(view))
        return false;
    parseCore(view, inode);
    const int core = coreSize(view);
    const int most = qMax(0, view.size() - core);
    // Freeing an inode forgets where its attributes began; the data stay in front of them.
    inode->fork = view.bytes(core, inode->forkSize > 0 ? qMin(inode->forkSize, most) : most);
    inode->hasFork = true;
    return true;
}

bool isGenuine(const View &view, const QByteArray &uuid, quint64 number)
{
    if (!isInode(view))
        return false;
    if (view.u8(4) < 3)
        return true;
    if (view.u64(152) != number || view.bytes(160, 16) != uuid)
        return false;
    const char zeros[4] = {};
    quint32 crc = crc32c(~0U, view.at(0), kChecksum);
    crc = crc32c(crc, zeros, 4);
    crc = ~crc32c(crc, view.at(kChecksum + 4), view.size() - kChecksum - 4);
    return crc == qFromLittleEndian<quint32>(view.at(kChecksum));
}

} // namespace services::recoveryd::xfs
