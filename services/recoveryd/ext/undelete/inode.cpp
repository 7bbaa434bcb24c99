#include "recoveryd/ext/undelete/inode.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/crc32c.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd::ext {

namespace {

constexpr int kOldSize = 128; ///< Of the first, fixed part.
constexpr int kMapAt = 40;
constexpr int kChecksumLowAt = 0x7C;
constexpr int kChecksumHighAt = 0x82;
constexpr quint32 kAttributeMagic = 0xEA020000;
constexpr quint8 kSystemAttribute = 7;
constexpr int kMaxAttributes = 64;

QByteArray rawInode(const Layout &layout, const QByteArray &block, quint32 slot)
{
    return block.mid(int(slot) * layout.super().inodeSize, layout.super().inodeSize);
}

/// Seconds with the two bits that carry them beyond 2038, in milliseconds.
qint64 timeOf(quint32 seconds, quint32 extra)
{
    const qint64 epoch = qint64(extra & 3) << 32;
    return (qint64(qint32(seconds)) + epoch) * 1000 + (extra >> 2) / 1000000;
}

int extraSize(const Fields &at, int inodeSize)
{
    const int extra = inodeSize > kOldSize ? at.le16(0x80) : 0;
    return extra >= 4 && extra % 4 == 0 && extra <= inodeSize - kOldSize ? extra : 0;
}

bool hasHighChecksum(const Fields &at, int inodeSize)
{
    return extraSize(at, inodeSize) >= 4;
}

/// The inode with its checksum fields zeroed, as the checksum covers it.
QByteArray cleared(QByteArray raw)
{
    const bool hasHigh = hasHighChecksum(Fields(raw), raw.size());
    std::memset(raw.data() + kChecksumLowAt, 0, 2);
    if (hasHigh)
        std::memset(raw.data() + kChecksumHighAt, 0, 2);
    return raw;
}

/// The value before the inode's number, its generation and its bytes were added; the number's part
/// is left in. Only where all 32 bits are stored.
bool valueOfNumber(const QByteArray &raw, quint32 *value)
{
    const Fields at(raw);
    if (!hasHighChecksum(at, raw.size()))
        return false;
    const quint32 stored = (quint32(at.le16(kChecksumHighAt)) << 16) | at.le16(kChecksumLowAt);
    const QByteArray bytes = cleared(raw);
    const quint32 afterGeneration = crc32cBefore(stored, bytes.constData(), bytes.size());
    *value = crc32cBefore(afterGeneration, raw.constData() + 100, 4);
    return true;
}

} // namespace

bool Inode::hasKnownType() const
{
    switch (mode & 0xF000) {
    case 0x1000: // fifo
    case 0x2000: // character device
    case 0x4000: // directory
    case 0x6000: // block device
    case 0x8000: // regular file
    case 0xA000: // symbolic link
    case 0xC000: // socket
        return true;
    default:
        return false;
    }
}

bool Inode::hasMap() const
{
    if (is(InlineData))
        return true;
    if (is(Extents))
        return qFromLittleEndian<quint16>(map.data()) == 0xF30A &&
               qFromLittleEndian<quint16>(map.data() + 2) > 0;
    return std::any_of(map.begin(), map.end(), [](char byte) { return byte != 0; });
}

quint8 Inode::entryType() const
{
    switch (mode & 0xF000) {
    case 0x8000:
        return 1;
    case 0x4000:
        return 2;
    case 0x2000:
        return 3;
    case 0x6000:
        return 4;
    case 0x1000:
        return 5;
    case 0xC000:
        return 6;
    case 0xA000:
        return 7;
    default:
        return 0;
    }
}

bool parseInode(const Layout &layout, const QByteArray &block, quint32 slot, Inode *inode)
{
    const ExtSuperblock &super = layout.super();
    const QByteArray raw = QByteArray::fromRawData(
        block.constData() + qint64(slot) * super.inodeSize, super.inodeSize);
    const Fields at(raw);
    *inode = Inode();
    inode->mode = at.le16(0);
    if (!inode->hasKnownType())
        return false;
    inode->links = at.le16(26);
    inode->deletionTime = at.le32(20);
    inode->flags = at.le32(32);
    inode->generation = at.le32(100);
    const bool hasLargeSize =
        inode->isRegular() || super.hasIncompatible(extfeature::kLargeDirectories);
    inode->size =
        qint64(at.le32(4)) | (hasLargeSize ? qint64(at.le32(108) & 0x7FFFFFFF) << 32 : qint64(0));
    inode->blocks = at.le32(28);
    if (super.hasReadOnly(extfeature::kHugeFiles))
        inode->blocks |= quint64(at.le16(0x74)) << 32;
    inode->hasAttributeBlock = at.le32(104) != 0 || at.le16(0x76) != 0;
    std::memcpy(inode->map.data(), raw.constData() + kMapAt, inode->map.size());
    const int extra = extraSize(at, super.inodeSize);
    inode->modifiedMs = timeOf(at.le32(16), extra >= 12 ? at.le32(0x88) : 0);
    if (extra >= 20)
        inode->birth = qint32(at.le32(0x90));
    return true;
}

bool hasRightChecksum(const Layout &layout, const QByteArray &block, quint32 slot, quint32 number)
{
    if (!layout.super().hasMetadataChecksums())
        return true;
    const QByteArray raw = rawInode(layout, block, slot);
    const Fields at(raw);
    const QByteArray bytes = cleared(raw);
    const quint32 crc =
        crc32c(layout.inodeSeed(number, at.le32(100)), bytes.constData(), bytes.size());
    return quint16(crc) == at.le16(kChecksumLowAt) &&
           (!hasHighChecksum(at, raw.size()) || crc >> 16 == at.le16(kChecksumHighAt));
}

quint32 numberByChecksum(const Layout &layout, const QByteArray &block, quint32 slot)
{
    quint32 value = 0;
    if (!layout.super().hasMetadataChecksums() ||
        !valueOfNumber(rawInode(layout, block, slot), &value))
        return 0;
    const quint32 number = crc32cNumberBetween(layout.super().checksumSeed, value);
    const qint64 place = layout.blockOfInode(number);
    return place > 0 && layout.firstInodeOf(place) + slot == number ? number : 0;
}

quint32 seedByInode(const Layout &layout, const QByteArray &block, quint32 slot, quint32 number)
{
    quint32 value = 0;
    // The number enters as its sum with the seed, so that each of the two gives the other.
    return valueOfNumber(rawInode(layout, block, slot), &value) ? crc32cNumberBetween(number, value)
                                                                : 0;
}

QByteArray inlineDataOf(const Layout &layout, const QByteArray &block, quint32 slot)
{
    const QByteArray raw = rawInode(layout, block, slot);
    const Fields at(raw);
    Inode inode;
    if (!parseInode(layout, block, slot, &inode) || !inode.is(Inode::InlineData))
        return QByteArray();
    QByteArray data = inode.mapBytes();
    // The rest is the value of the attribute system.data, which has the name "data".
    const int header = kOldSize + extraSize(at, raw.size());
    if (header > kOldSize && at.le32(header) == kAttributeMagic) {
        int entry = header + 4;
        for (int i = 0; i < kMaxAttributes && at.le32(entry) != 0; ++i) {
            const int nameLength = at.u8(entry);
            const qint64 size = at.le32(entry + 8);
            const int valueAt = header + 4 + at.le16(entry + 2);
            if (at.u8(entry + 1) == kSystemAttribute && nameLength == 4 &&
                at.isAt(entry + 16, "data", 4) && size <= raw.size() - valueAt) {
                data += raw.mid(valueAt, int(size));
                break;
            }
            entry += 16 + ((nameLength + 3) & ~3);
        }
    }
    return data.left(int(qMin(inode.size, qint64(data.size()))));
}

} // namespace services::recoveryd::ext
