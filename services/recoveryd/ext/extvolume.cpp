#include "recoveryd/ext/extvolume.h"

#include "recoveryd/devices/bytes.h"

#include <limits>

namespace services {
namespace recoveryd {

namespace {

constexpr quint16 kBlockBitmapUnwritten = 0x2; // group flag

bool fail(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}

} // namespace

bool ExtVolume::open(const Volume &volume, QString *error)
{
    const QByteArray bytes = volume.read(kExtSuperblockAt, kExtSuperblockSize, error);
    if (bytes.isEmpty())
        return false;
    ExtSuperblock super;
    if (Fields(bytes).le16(56) != kExtMagic)
        return fail(error, QStringLiteral("不是 ext2/3/4 文件系统"));
    if (!parseExtSuperblock(bytes, &super))
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
    if (m_super.incompatible & extfeature::kMetaGroups)
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
