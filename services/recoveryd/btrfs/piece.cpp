#include "recoveryd/btrfs/piece.h"

namespace services::recoveryd::btrfs {

namespace {

constexpr int kMaxNames = 4096;
constexpr int kMaxNameLength = 255;

qint64 timeAt(const char *at)
{
    constexpr qint64 kMaxSeconds = qint64(1) << 40;
    const qint64 seconds = qint64(le64(at));
    return qBound(-kMaxSeconds, seconds, kMaxSeconds) * 1000 +
           qMin(le32(at + 8), 999999999u) / 1000000;
}

void readFacts(const ItemView &item, Piece *piece)
{
    if (item.size < kInodeItemSize)
        return;
    InodeFacts &facts = piece->facts;
    facts.generation = le64(item.data);
    facts.transaction = le64(item.data + 8);
    facts.size = le64(item.data + 16);
    facts.storedBytes = le64(item.data + 24);
    facts.links = le32(item.data + 40);
    facts.mode = le32(item.data + 52);
    facts.changedMs = timeAt(item.data + 124);
    facts.modifiedMs = timeAt(item.data + 136);
    piece->hasFacts = true;
}

/// The names in an item, one behind the other; `head` is what stands before the length of each.
void readNames(const ItemView &item, bool isExtended, Piece *piece)
{
    const int head = isExtended ? 16 : 8;
    for (int at = 0; at + head + 2 <= item.size && piece->names.size() < kMaxNames;) {
        const quint64 folder = isExtended ? le64(item.data) : item.key.offset;
        const int length = le16(item.data + at + head);
        const int nameAt = at + head + 2;
        if (length == 0 || length > kMaxNameLength || length > item.size - nameAt)
            return;
        piece->names.append(
            {isExtended ? le64(item.data + at) : folder, QByteArray(item.data + nameAt, length)});
        at = nameAt + length;
    }
}

void readExtent(const ItemView &item, const NodeView &leaf, qint64 offset, Piece *piece)
{
    constexpr quint8 kMaxCompression = 3;
    constexpr quint64 kMax = quint64(1) << 60;
    if (item.size < kExtentHeadSize || quint8(item.data[20]) > 2 || item.key.offset > kMax)
        return;
    ExtentItem extent;
    extent.offset = item.key.offset;
    extent.generation = le64(item.data);
    extent.unpacked = le64(item.data + 8);
    extent.compression = quint8(item.data[16]);
    extent.isReadable =
        extent.compression <= kMaxCompression && item.data[17] == 0 && le16(item.data + 18) == 0;
    extent.kind = ExtentItem::Kind(item.data[20]);
    if (extent.kind == ExtentItem::Kind::Inline) {
        extent.inlineLength = item.size - kExtentHeadSize;
        extent.inlineAt = offset + (item.data + kExtentHeadSize - leaf.bytes());
        extent.inlineHash = quint32(
            qHash(QByteArray::fromRawData(item.data + kExtentHeadSize, extent.inlineLength)));
        extent.length = qMin(extent.unpacked, quint64(kMaxNodeSize));
    } else {
        if (item.size < kExtentItemSize)
            return;
        extent.address = le64(item.data + 21);
        extent.storedLength = le64(item.data + 29);
        extent.skip = le64(item.data + 37);
        extent.length = le64(item.data + 45);
        if (extent.address > kMax || extent.storedLength > kMax || extent.skip > kMax ||
            extent.length > kMax || extent.length == 0)
            return;
    }
    piece->extents.append(extent);
}

} // namespace

void readInodeItem(const ItemView &item, const NodeView &leaf, qint64 offset, Piece *piece)
{
    switch (item.key.type) {
    case kInodeItem:
        readFacts(item, piece);
        break;
    case kInodeReference:
        readNames(item, false, piece);
        break;
    case kInodeExtendedReference:
        readNames(item, true, piece);
        break;
    case kExtentData:
        readExtent(item, leaf, offset, piece);
        break;
    default:
        break;
    }
}

} // namespace services::recoveryd::btrfs
