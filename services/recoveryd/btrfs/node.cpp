#include "recoveryd/btrfs/node.h"

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

constexpr int kChecksumArea = 32;

bool isZero(const char *from, int length)
{
    return std::all_of(from, from + length, [](char byte) { return byte == 0; });
}

/// The items' data fill the leaf from its end towards its head.
bool isSoundLeaf(const NodeView &leaf)
{
    const int space = leaf.size() - kHeaderSize;
    qint64 end = space;
    for (int i = 0; i < leaf.count(); ++i) {
        const char *const head = leaf.bytes() + kHeaderSize + i * kItemSize;
        const qint64 offset = le32(head + 17);
        const qint64 size = le32(head + 21);
        if (offset + size != end || offset < qint64(leaf.count()) * kItemSize)
            return false;
        end = offset;
        if (i > 0 && !(Key::at(head - kItemSize) < Key::at(head)))
            return false;
    }
    return true;
}

bool hasGoodSum(const char *bytes, const NodeFormat &format)
{
    return !canCheck(format.checksum) || matchesChecksum(format.checksum, bytes + kChecksumArea,
                                                         format.nodeSize - kChecksumArea, bytes);
}

ChecksumKind kindBySum(const char *sum)
{
    if (isZero(sum + 4, kChecksumArea - 4))
        return ChecksumKind::Crc32c;
    return isZero(sum + 8, kChecksumArea - 8) ? ChecksumKind::Xxhash : ChecksumKind::Sha256;
}

} // namespace

bool NodeView::isSound() const
{
    const int room = m_size - kHeaderSize;
    if (level() > kMaxLevel || count() <= 0)
        return false;
    if (isLeaf())
        return count() <= room / kItemSize && isSoundLeaf(*this);
    return count() <= room / kPointerSize;
}

bool looksLikeNode(const char *header)
{
    // Flags: written, maybe moved by a balance; above them the revision of back references.
    constexpr quint64 kWritten = 1;
    constexpr quint64 kMoved = 2;
    constexpr quint64 kRevision = quint64(1) << 56;
    const quint64 flags = le64(header + 56);
    const quint64 address = le64(header + 48);
    const quint64 generation = le64(header + 80);
    return (flags & ~kMoved) == (kRevision | kWritten) && address != 0 &&
           address % kNodeAlignment == 0 && generation != 0 && generation < (quint64(1) << 48) &&
           quint8(header[100]) <= kMaxLevel;
}

bool isNode(const char *bytes, const NodeFormat &format)
{
    return looksLikeNode(bytes) &&
           std::memcmp(bytes + 32, format.id.data(), format.id.size()) == 0 &&
           hasGoodSum(bytes, format) && NodeView(bytes, format.nodeSize).isSound();
}

bool deriveFormat(const char *bytes, qint64 left, NodeFormat *format)
{
    NodeFormat tried;
    tried.id = fsIdAt(bytes + 32);
    tried.checksum = kindBySum(bytes);
    for (int size = kMinNodeSize; size <= kMaxNodeSize && size <= left; size *= 2) {
        tried.nodeSize = size;
        const NodeView node(bytes, size);
        if (!node.isSound())
            continue;
        if (!hasGoodSum(bytes, tried)) {
            // 32 bytes may also be a sum that cannot be checked; then the items must fit exactly.
            if (tried.checksum != ChecksumKind::Sha256 || !node.isLeaf())
                continue;
            tried.checksum = ChecksumKind::Blake2b;
        }
        *format = tried;
        return true;
    }
    return false;
}

} // namespace services::recoveryd::btrfs
