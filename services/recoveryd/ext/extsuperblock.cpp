#include "recoveryd/ext/extsuperblock.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/crc32c.h"

namespace services::recoveryd {

namespace {

using namespace extfeature;

constexpr quint32 kExt4Incompatible = 0x2C0; // extents, 64 bit, flexible groups
constexpr quint32 kExt4ReadOnly = 0x478;     // huge files, checksums, many links, extra fields
constexpr int kChecksumAt = 1020;
constexpr int kBackedUpMap = 1; // s_jnl_backup_type
constexpr qint64 kMaxBlocks = qint64(1) << 48;

bool isPowerOf(qint64 group, int base)
{
    qint64 power = base;
    while (power < group)
        power *= base;
    return power == group;
}

void parseFeatures(const Fields &at, const QByteArray &bytes, ExtSuperblock *super)
{
    super->inodeSize = at.le16(88);
    super->groupNumber = at.le16(90);
    super->compatible = at.le32(92);
    super->incompatible = at.le32(96);
    super->readOnlyCompatible = at.le32(100);
    super->uuid = bytes.mid(104, 16);
    super->reservedTableBlocks = at.le16(206);
    super->journalInode = super->hasCompatible(kHasJournal) ? at.le32(224) : 0;
    if (at.u8(253) == kBackedUpMap) {
        super->journalMap = bytes.mid(268, 60);
        super->journalSize = qint64((quint64(at.le32(268 + 60)) << 32) | at.le32(268 + 64));
    }
    super->madeMs = qint64(at.le32(264)) * 1000;
    super->firstMetaGroup = at.le32(260);
    super->backupGroups[0] = at.le32(588);
    super->backupGroups[1] = at.le32(592);
    super->checksumSeed = super->hasIncompatible(kChecksumSeed)
                              ? at.le32(624)
                              : crc32c(~quint32(0), super->uuid.constData(), super->uuid.size());
}

bool isPlausible(const ExtSuperblock &super)
{
    const qint64 bitsPerBlock = super.blockSize * 8;
    return super.blockSize > 0 && super.blockCount > super.firstDataBlock &&
           super.blockCount <= kMaxBlocks && super.firstDataBlock <= 1 &&
           super.blocksPerGroup >= 8 && super.inodesPerGroup >= 1 &&
           super.inodesPerGroup <= bitsPerBlock &&
           super.blocksPerGroup <= bitsPerBlock * super.clusterBlocks &&
           isPowerOfTwo(quint32(super.inodeSize)) && super.inodeSize >= 128 &&
           super.inodeSize <= super.blockSize && isPowerOfTwo(quint32(super.descriptorSize)) &&
           super.descriptorSize >= 32 && super.descriptorSize <= 1024 &&
           !super.hasIncompatible(kJournalDevice);
}

} // namespace

QString ExtSuperblock::typeName() const
{
    if ((incompatible & kExt4Incompatible) || (readOnlyCompatible & kExt4ReadOnly))
        return QStringLiteral("ext4");
    return hasCompatible(kHasJournal) ? QStringLiteral("ext3") : QStringLiteral("ext2");
}

bool ExtSuperblock::holdsBackup(qint64 group) const
{
    if (group == 0)
        return true;
    if (hasCompatible(kSparseSuper2))
        return group == backupGroups[0] || group == backupGroups[1];
    return !hasSparseBackups() || group == 1 || isPowerOf(group, 3) || isPowerOf(group, 5) ||
           isPowerOf(group, 7);
}

qint64 ExtSuperblock::groupCount() const
{
    return (blockCount - firstDataBlock + blocksPerGroup - 1) / blocksPerGroup;
}

qint64 ExtSuperblock::inodeTableBlocks() const
{
    return (qint64(inodesPerGroup) * inodeSize + blockSize - 1) / blockSize;
}

bool parseExtSuperblock(const QByteArray &bytes, ExtSuperblock *super)
{
    const Fields at(bytes);
    if (at.le16(56) != kExtMagic || bytes.size() < kExtSuperblockSize)
        return false;
    *super = ExtSuperblock();
    super->inodeCount = at.le32(0);
    super->firstDataBlock = at.le32(20);
    super->blockSize = at.le32(24) <= 6 ? qint64(1024) << at.le32(24) : 0;
    super->blocksPerGroup = at.le32(32);
    super->inodesPerGroup = at.le32(40);
    // Revision 0 has fixed inodes and none of the feature words.
    super->inodeSize = 128;
    if (at.le32(76) >= 1)
        parseFeatures(at, bytes, super);
    const bool is64Bit = super->hasIncompatible(k64Bit);
    super->descriptorSize = is64Bit ? at.le16(254) : 32;
    super->blockCount = at.le32(4);
    super->freeBlocks = at.le32(12);
    if (is64Bit) {
        super->blockCount |= qint64(at.le32(336)) << 32;
        super->freeBlocks |= qint64(at.le32(344)) << 32;
    }
    const QByteArray label = bytes.mid(120, 16);
    super->label =
        QString::fromUtf8(label.constData(), int(qstrnlen(label.constData(), uint(label.size()))));
    const quint32 clusterShift = at.le32(28);
    if (super->hasClusters()) {
        if (clusterShift < at.le32(24) || clusterShift > 20)
            return false;
        super->clusterBlocks = qint64(1) << (clusterShift - at.le32(24));
    }
    if (super->hasMetadataChecksums() &&
        crc32c(~quint32(0), bytes.constData(), kChecksumAt) != at.le32(kChecksumAt))
        return false;
    return isPlausible(*super);
}

} // namespace services::recoveryd
