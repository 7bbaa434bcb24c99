#include "recoveryd/ext/extvolume.h"

#include "recoveryd/devices/bytes.h"

#include <limits>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kSuperblockAt = 1024;
constexpr qint64 kSuperblockSize = 1024;
constexpr quint32 kHasJournal = 0x4;           // compatible
constexpr quint32 kIsJournalDevice = 0x8;      // incompatible
constexpr quint32 kMetaBlockGroups = 0x10;     // incompatible
constexpr quint32 kIs64Bit = 0x80;             // incompatible
constexpr quint32 kExt4Incompatible = 0x2C0;   // extents, 64 bit, flexible groups
constexpr quint32 kExt4ReadOnly = 0x478;       // huge files, checksums, many links, extra fields
constexpr quint32 kSparseSuper = 0x1;          // read-only compatible
constexpr quint32 kBigAlloc = 0x200;           // read-only compatible
constexpr quint16 kBlockBitmapUnwritten = 0x2; // group flag

bool fail(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}

QString labelOf(const QByteArray &bytes)
{
    const QByteArray raw = bytes.mid(120, 16);
    return QString::fromUtf8(raw.constData(), int(qstrnlen(raw.constData(), uint(raw.size()))));
}

ExtSuperblock parse(const QByteArray &bytes)
{
    const Fields at(bytes);
    ExtSuperblock super;
    super.inodeCount = at.le32(0);
    super.firstDataBlock = at.le32(20);
    super.blockSize = at.le32(24) <= 6 ? qint64(1024) << at.le32(24) : 0;
    super.blocksPerGroup = at.le32(32);
    super.inodesPerGroup = at.le32(40);
    // Revision 0 has fixed inodes and none of the feature words.
    const bool isDynamic = at.le32(76) >= 1;
    super.inodeSize = isDynamic ? at.le16(88) : 128;
    if (isDynamic) {
        super.compatible = at.le32(92);
        super.incompatible = at.le32(96);
        super.readOnlyCompatible = at.le32(100);
    }
    const bool is64Bit = (super.incompatible & kIs64Bit) != 0;
    super.descriptorSize = is64Bit ? at.le16(254) : 32;
    super.blockCount = at.le32(4);
    super.freeBlocks = at.le32(12);
    if (is64Bit) {
        super.blockCount |= qint64(at.le16(336)) << 32;
        super.freeBlocks |= qint64(at.le16(344)) << 32;
    }
    super.reservedTableBlocks = at.le16(206);
    super.label = labelOf(bytes);
    return super;
}

bool isPlausible(const ExtSuperblock &super)
{
    const qint64 bitsPerBlock = super.blockSize * 8;
    return super.blockSize > 0 && super.blockCount > super.firstDataBlock &&
           super.firstDataBlock <= 1 && super.blocksPerGroup >= 8 && super.inodesPerGroup >= 1 &&
           super.inodesPerGroup <= bitsPerBlock &&
           (super.hasClusters() || super.blocksPerGroup <= bitsPerBlock) &&
           isPowerOfTwo(quint32(super.inodeSize)) && super.inodeSize >= 128 &&
           super.inodeSize <= super.blockSize && isPowerOfTwo(quint32(super.descriptorSize)) &&
           super.descriptorSize >= 32 && super.descriptorSize <= 1024 &&
           !(super.incompatible & kIsJournalDevice);
}

} // namespace

QString ExtSuperblock::typeName() const
{
    if ((incompatible & kExt4Incompatible) || (readOnlyCompatible & kExt4ReadOnly))
        return QStringLiteral("ext4");
    return (compatible & kHasJournal) ? QStringLiteral("ext3") : QStringLiteral("ext2");
}

bool ExtSuperblock::hasClusters() const
{
    return (readOnlyCompatible & kBigAlloc) != 0;
}

bool ExtSuperblock::hasSparseBackups() const
{
    return (readOnlyCompatible & kSparseSuper) != 0;
}

bool ExtVolume::open(const Volume &volume, QString *error)
{
    const QByteArray bytes = volume.read(kSuperblockAt, kSuperblockSize, error);
    if (bytes.isEmpty())
        return false;
    if (Fields(bytes).le16(56) != 0xEF53)
        return fail(error, QStringLiteral("不是 ext2/3/4 文件系统"));
    const ExtSuperblock super = parse(bytes);
    if (!isPlausible(super))
        return fail(error, QStringLiteral("ext 超级块损坏"));
    const qint64 groups =
        (super.blockCount - super.firstDataBlock + super.blocksPerGroup - 1) / super.blocksPerGroup;
    if (groups > std::numeric_limits<int>::max())
        return fail(error, QStringLiteral("ext 超级块损坏"));
    m_volume = volume;
    m_super = super;
    m_groupCount = int(groups);
    return true;
}

bool ExtVolume::readGroup(int index, ExtGroup *group, QString *error) const
{
    if (m_super.incompatible & kMetaBlockGroups)
        return fail(error, QStringLiteral("不支持分散存放的组描述符"));
    const qint64 table = (m_super.firstDataBlock + 1) * m_super.blockSize;
    const QByteArray bytes = m_volume.read(table + qint64(index) * m_super.descriptorSize,
                                           m_super.descriptorSize, error);
    if (bytes.isEmpty())
        return false;
    const Fields at(bytes);
    // The high halves lie beyond the end of short descriptors and then read as 0.
    const auto place = [&at](int low, int high) {
        return qint64((quint64(at.le32(high)) << 32) | at.le32(low));
    };
    group->blockBitmap = place(0, 32);
    group->inodeBitmap = place(4, 36);
    group->inodeTable = place(8, 40);
    group->isBitmapUnwritten = (at.le16(18) & kBlockBitmapUnwritten) != 0;
    return true;
}

QByteArray ExtVolume::readBlock(qint64 block, QString *error) const
{
    if (block <= 0 || block >= m_super.blockCount ||
        block >= std::numeric_limits<qint64>::max() / m_super.blockSize) {
        fail(error, QStringLiteral("块号 %1 超出文件系统").arg(block));
        return QByteArray();
    }
    return m_volume.read(block * m_super.blockSize, m_super.blockSize, error);
}

QByteArray ExtVolume::readInode(quint32 number, QString *error) const
{
    if (number == 0 || number > m_super.inodeCount ||
        (number - 1) / m_super.inodesPerGroup >= quint32(m_groupCount)) {
        fail(error, QStringLiteral("inode 号 %1 超出文件系统").arg(number));
        return QByteArray();
    }
    ExtGroup group;
    if (!readGroup(int((number - 1) / m_super.inodesPerGroup), &group, error))
        return QByteArray();
    if (group.inodeTable <= 0 || group.inodeTable >= m_super.blockCount) {
        fail(error, QStringLiteral("组描述符损坏"));
        return QByteArray();
    }
    const qint64 within = qint64((number - 1) % m_super.inodesPerGroup) * m_super.inodeSize;
    return m_volume.read(group.inodeTable * m_super.blockSize + within, m_super.inodeSize, error);
}

} // namespace recoveryd
} // namespace services
