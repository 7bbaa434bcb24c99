#include "recoveryd/xfs/logitems.h"

namespace services::recoveryd::xfs {

namespace {

constexpr quint16 kInodeItem = 0x123B;
constexpr quint16 kBufferItem = 0x123C;
constexpr int kTransactionHeader = 16;
constexpr int kBasicBlock = 512; ///< Unit of addresses in the log.
constexpr int kPiece = 128;      ///< Unit in which buffers are logged.

// What an inode item holds.
constexpr quint32 kCore = 0x001;
constexpr quint32 kLocalFork = 0x002;
constexpr quint32 kExtentFork = 0x004;
constexpr quint32 kTreeFork = 0x008;
constexpr quint32 kDataFork = kLocalFork | kExtentFork | kTreeFork;

constexpr quint16 kInodeBuffer = 0x1; ///< Flags of a buffer item.
constexpr quint16 kCancelled = 0x2;
// Types, in the upper five bits of the flags.
constexpr int kInodeBufferType = 8;
constexpr int kDirectoryBlockType = 10;
constexpr int kDirectoryDataType = 11;

/// The root of a tree as the log has it, a block of its own, in the form of the inode on disk.
QByteArray forkFromRoot(const QByteArray &root, bool isV5)
{
    constexpr int kOldHeader = 24;
    constexpr int kHeader = 72;
    const int header = isV5 ? kHeader : kOldHeader;
    const View view(root);
    const int room = (root.size() - header) / 16;
    const int count = view.u16(6);
    if (room < 1 || count < 1 || count > room)
        return QByteArray();
    return view.bytes(4, 4) + view.bytes(header, 8 * count) +
           view.bytes(header + 8 * room, 8 * count);
}

void takeFork(const QByteArray &region, quint32 fields, bool isV5, Inode *inode)
{
    inode->hasFork = true;
    inode->fork = (fields & kTreeFork) != 0 ? forkFromRoot(region, isV5) : region;
    if ((fields & kLocalFork) != 0)
        inode->fork.truncate(int(qMin(quint64(region.size()), inode->size)));
}

void takeInode(const LogTransaction &transaction, int first, int count,
               const LogItemHandlers &handlers)
{
    const QByteArray &format = transaction.regions.at(first);
    const View view(format, transaction.order);
    constexpr int kShortFormat = 52; // without padding, as 32-bit machines have it
    const bool isShort = format.size() == kShortFormat;
    const quint32 fields = view.u32(4);
    if ((fields & kCore) == 0 || count < 2)
        return;
    LoggedInode item;
    item.number = view.u64(isShort ? 12 : 16);
    const View core(transaction.regions.at(first + 1), transaction.order);
    if (!isInode(core))
        return;
    parseCore(core, &item.inode);
    item.inode.lsn = transaction.lsn;
    if ((fields & kDataFork) != 0 && count >= 3)
        takeFork(transaction.regions.at(first + 2), fields, core.u8(4) >= 3, &item.inode);
    handlers.inode(item);
}

void takeBuffer(const LogTransaction &transaction, int first, int count,
                const LogItemHandlers &handlers)
{
    constexpr int kMaxBuffer = 64 * 1024;
    const View view(transaction.regions.at(first), transaction.order);
    LoggedBuffer item;
    const quint16 flags = view.u16(4);
    item.length = view.u16(6) * kBasicBlock;
    const qint64 block = qint64(view.u64(8));
    const quint32 words = view.u32(16);
    if (block < 0 || block > (qint64(1) << 50) || item.length > kMaxBuffer || words > 1024)
        return;
    item.offset = block * kBasicBlock;
    item.isCancelled = (flags & kCancelled) != 0;
    item.holdsInodes = (flags & kInodeBuffer) != 0 || (flags >> 11) == kInodeBufferType;
    item.holdsEntries = (flags >> 11) == kDirectoryBlockType || (flags >> 11) == kDirectoryDataType;
    int next = first + 1;
    const int bits = int(qMin(words * 32, quint32(item.length / kPiece)));
    const auto isSet = [&view](int bit) {
        return (view.u32(20 + bit / 32 * 4) >> (bit % 32) & 1) != 0;
    };
    // A run of set bits may be cut into several regions.
    for (int bit = 0; bit < bits && next < first + count;) {
        if (!isSet(bit)) {
            ++bit;
            continue;
        }
        const QByteArray &bytes = transaction.regions.at(next++);
        item.pieces.append({bit * kPiece, bytes});
        bit += qMax(1, (bytes.size() + kPiece - 1) / kPiece);
    }
    handlers.buffer(item);
}

} // namespace

void forEachItem(const LogTransaction &transaction, const LogItemHandlers &handlers)
{
    QVector<QPair<int, int>> inodes;
    const int regions = transaction.regions.size();
    int at = regions > 0 && transaction.regions.first().size() == kTransactionHeader ? 1 : 0;
    while (at < regions) {
        const View view(transaction.regions.at(at), transaction.order);
        const int count = qBound(1, int(view.u16(2)), regions - at);
        if (view.u16(0) == kInodeItem && handlers.inode)
            inodes.append({at, count});
        else if (view.u16(0) == kBufferItem && handlers.buffer)
            takeBuffer(transaction, at, count, handlers);
        at += count;
    }
    for (const QPair<int, int> &inode : qAsConst(inodes))
        takeInode(transaction, inode.first, inode.second, handlers);
}

} // namespace services::recoveryd::xfs
