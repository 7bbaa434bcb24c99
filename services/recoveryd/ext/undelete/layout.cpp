#include "recoveryd/ext/undelete/layout.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/crc32c.h"

#include <algorithm>
#include <limits>

namespace services::recoveryd::ext {

namespace {

using namespace extfeature;

constexpr quint16 kInodesUnwritten = 0x1; // group flags
constexpr quint16 kBitmapUnwritten = 0x2;
constexpr quint16 kTableZeroed = 0x4;
constexpr int kChecksumAt = 30;
constexpr qint64 kSweepStep = 1 << 20;
constexpr qint64 kSweepLimit = qint64(1) << 30;
constexpr qint64 kMaxGroups = 4 * 1024 * 1024;
constexpr int kCopies = 3; ///< The descriptors and two backups are asked.

/// CRC-16 of group descriptors on volumes without metadata checksums (0x8005, reflected).
quint16 crc16(quint16 crc, const char *bytes, int length)
{
    for (int i = 0; i < length; ++i) {
        crc ^= quint8(bytes[i]);
        for (int bit = 0; bit < 8; ++bit)
            crc = quint16((crc >> 1) ^ ((crc & 1) ? 0xA001 : 0));
    }
    return crc;
}

} // namespace

bool parseSuperblockAt(const QByteArray &bytes, qint64 offset, SuperblockPlace *place)
{
    if (!parseExtSuperblock(bytes, &place->super))
        return false;
    const ExtSuperblock &super = place->super;
    const qint64 group = super.groupNumber;
    place->copyAt = offset;
    place->isPrimary = group == 0;
    place->start =
        offset - (group == 0 ? kExtSuperblockAt : super.groupStart(group) * super.blockSize);
    return group < super.groupCount() && super.holdsBackup(group);
}

bool readSuperblockAt(const MediaReader &media, qint64 offset, SuperblockPlace *place)
{
    return offset >= 0 && offset + kExtSuperblockSize <= media.size() &&
           parseSuperblockAt(media.read(offset, kExtSuperblockSize), offset, place);
}

bool mayBeJournalled(const MediaReader &media, const SuperblockPlace &place)
{
    const ExtSuperblock &super = place.super;
    const qint64 within = super.blockSize > kExtSuperblockAt ? kExtSuperblockAt : 0;
    return place.isPrimary && place.start > 0 && (place.copyAt - within) % super.blockSize == 0 &&
           super.blockCount * super.blockSize <= media.size();
}

/// The primary copy, else the backups of usual layouts, else whatever the first part of the volume
/// holds.
bool Layout::findSuperblock(ExtSuperblock *super)
{
    SuperblockPlace place;
    const auto isUsable = [&](qint64 offset) {
        if (!readSuperblockAt(m_media, offset, &place) || place.start != 0)
            return false;
        *super = place.super;
        return true;
    };
    if (isUsable(kExtSuperblockAt))
        return true;
    m_isHeadDamaged = true;
    for (qint64 size : {4096, 1024, 2048, 65536, 16384, 8192, 32768})
        for (qint64 group : {1, 3, 5, 7, 9, 25, 27, 49})
            if (isUsable((group * size * 8 + (size == 1024 ? 1 : 0)) * size))
                return true;
    return sweepForSuperblock(super);
}

bool Layout::sweepForSuperblock(ExtSuperblock *super) const
{
    SuperblockPlace place;
    bool isJournalled = false;
    const qint64 end = qMin(m_media.size(), kSweepLimit);
    for (qint64 at = 0; at < end; at += kSweepStep) {
        const QByteArray window = m_media.read(at, qMin(kSweepStep, end - at));
        for (int i = 0; i + kExtSuperblockSize <= window.size(); i += 1024) {
            if (Fields(window).le16(i + 56) != kExtMagic ||
                !readSuperblockAt(m_media, at + i, &place))
                continue;
            if (place.start == 0) {
                *super = place.super;
                return true;
            }
            if (!isJournalled && mayBeJournalled(m_media, place)) {
                *super = place.super;
                isJournalled = true;
            }
        }
    }
    return isJournalled;
}

bool Layout::open(QString *error)
{
    ExtSuperblock super;
    if (findSuperblock(&super))
        return openAs(super, error);
    if (error)
        *error = QStringLiteral("没有找到 ext 超级块或其备份");
    return false;
}

bool Layout::openAs(const ExtSuperblock &super, QString *error)
{
    m_super = super;
    readGroups();
    indexTables();
    if (!m_tables.empty())
        return true;
    if (error)
        *error = QStringLiteral("ext 组描述符及其备份均已损坏");
    return false;
}

/// The block that holds the `index`-th block of descriptors: copy 0 is the one in use.
qint64 Layout::placeOfDescriptors(qint64 index, int copy) const
{
    const auto head = [this](qint64 group) {
        return m_super.groupStart(group) + (m_super.holdsBackup(group) ? 1 : 0);
    };
    if (m_super.hasIncompatible(kMetaGroups) && index >= m_super.firstMetaGroup) {
        // A block of descriptors serves a meta group, and stands in its first, second and last one.
        const qint64 first = index * descriptorsPerBlock();
        const qint64 group = copy == 0   ? first
                             : copy == 1 ? first + 1
                                         : first + descriptorsPerBlock() - 1;
        return group < m_super.groupCount() ? head(group) : 0;
    }
    int passed = 0;
    for (qint64 group = 0; group < m_super.groupCount() && group <= 49; ++group)
        if (m_super.holdsBackup(group) && passed++ == copy)
            return m_super.groupStart(group) + 1 + index;
    return 0;
}

void Layout::readGroups()
{
    // What cannot be on the medium is not read: the number of groups may be a lie.
    const qint64 onMedium = m_media.size() / (m_super.blocksPerGroup * m_super.blockSize) + 1;
    m_groups.assign(size_t(qMin(qMin(m_super.groupCount(), onMedium), kMaxGroups)), Group());
    const qint64 blocks =
        (qint64(m_groups.size()) + descriptorsPerBlock() - 1) / descriptorsPerBlock();
    for (qint64 index = 0; index < blocks; ++index) {
        for (int copy = 0; copy < kCopies; ++copy) {
            const auto first = m_groups.begin() + std::ptrdiff_t(index * descriptorsPerBlock());
            const auto end =
                m_groups.begin() +
                std::ptrdiff_t(qMin(qint64(m_groups.size()), (index + 1) * descriptorsPerBlock()));
            if (std::all_of(first, end, [](const Group &group) { return group.isSure; }))
                break;
            const qint64 block = placeOfDescriptors(index, copy);
            if (block > 0)
                parseDescriptors(index, readBlock(block), copy == 0);
        }
    }
}

void Layout::parseDescriptors(qint64 index, const QByteArray &bytes, bool isPrimary)
{
    for (qint64 i = 0; i < descriptorsPerBlock(); ++i) {
        const qint64 number = index * descriptorsPerBlock() + i;
        if (number >= qint64(m_groups.size()))
            return;
        Group &known = m_groups[size_t(number)];
        if (known.isSure && !isPrimary)
            continue;
        const QByteArray raw = bytes.mid(int(i * m_super.descriptorSize), m_super.descriptorSize);
        Group group = parseGroup(raw);
        if (!isPlausible(group))
            continue;
        group.isSure = hasRightChecksum(number, raw);
        // A backup is as old as the volume: which inodes are in use, it does not know.
        if (!isPrimary) {
            group.unusedInodes = 0;
            group.freeClusters = -1;
            group.isBlockBitmapUnwritten = false;
            group.isInodeTableUnwritten = false;
            group.isInodeTableZeroed = false;
        }
        if (group.isSure || known.inodeTable == 0)
            known = group;
    }
}

Group Layout::parseGroup(const QByteArray &bytes) const
{
    const Fields at(bytes);
    Group group;
    // The high halves lie beyond the end of short descriptors and then read as 0.
    const auto place = [&at](int low, int high) {
        return qint64((quint64(at.le32(high)) << 32) | at.le32(low));
    };
    group.blockBitmap = place(0, 32);
    group.inodeBitmap = place(4, 36);
    group.inodeTable = place(8, 40);
    group.freeClusters = (qint64(at.le16(44)) << 16) | at.le16(12);
    if (m_super.hasReadOnly(kGroupChecksums | kMetadataChecksums)) {
        const quint16 flags = at.le16(18);
        group.isBlockBitmapUnwritten = (flags & kBitmapUnwritten) != 0;
        group.isInodeTableUnwritten = (flags & kInodesUnwritten) != 0;
        group.isInodeTableZeroed = (flags & kTableZeroed) != 0;
        group.unusedInodes =
            qMin(m_super.inodesPerGroup, (quint32(at.le16(50)) << 16) | at.le16(28));
    }
    return group;
}

bool Layout::isPlausible(const Group &group) const
{
    return isDataBlock(group.blockBitmap) && isDataBlock(group.inodeBitmap) &&
           isDataBlock(group.inodeTable) &&
           group.inodeTable + m_super.inodeTableBlocks() <= m_super.blockCount;
}

bool Layout::hasRightChecksum(qint64 number, const QByteArray &bytes) const
{
    const quint16 stored = Fields(bytes).le16(kChecksumAt);
    char order[4];
    qToLittleEndian(quint32(number), order);
    if (m_super.hasMetadataChecksums()) {
        QByteArray cleared = bytes;
        cleared[kChecksumAt] = 0;
        cleared[kChecksumAt + 1] = 0;
        const quint32 crc =
            crc32c(crc32c(m_super.checksumSeed, order, 4), cleared.constData(), cleared.size());
        return quint16(crc) == stored;
    }
    if (!m_super.hasReadOnly(kGroupChecksums))
        return true;
    quint16 crc = crc16(0xFFFF, m_super.uuid.constData(), m_super.uuid.size());
    crc = crc16(crc, order, 4);
    crc = crc16(crc, bytes.constData(), kChecksumAt);
    if (bytes.size() > 32)
        crc = crc16(crc, bytes.constData() + 32, bytes.size() - 32);
    return crc == stored;
}

void Layout::updateDescriptors(qint64 block, const QByteArray &bytes)
{
    const qint64 blocks =
        (qint64(m_groups.size()) + descriptorsPerBlock() - 1) / descriptorsPerBlock();
    for (qint64 index = 0; index < blocks; ++index)
        if (placeOfDescriptors(index, 0) == block)
            parseDescriptors(index, bytes, true);
    indexTables();
}

void Layout::indexTables()
{
    m_tables.clear();
    m_inodeLimit = 0;
    for (size_t i = 0; i < m_groups.size(); ++i) {
        const quint64 end = (quint64(i) + 1) * m_super.inodesPerGroup;
        if (m_groups[i].inodeTable == 0 || end > std::numeric_limits<quint32>::max())
            continue;
        m_tables.emplace_back(m_groups[i].inodeTable, quint32(i));
        m_inodeLimit = qMax(m_inodeLimit, quint32(end));
    }
    std::sort(m_tables.begin(), m_tables.end());
    if (m_super.inodeCount > 0)
        m_inodeLimit = qMin(m_inodeLimit, m_super.inodeCount);
}

QByteArray Layout::readBlock(qint64 block) const
{
    if (block < 0 || block >= m_super.blockCount)
        return QByteArray(int(m_super.blockSize), '\0');
    return m_media.read(block * m_super.blockSize, m_super.blockSize);
}

qint64 Layout::blockOfInode(quint32 number) const
{
    const quint32 group = (number - 1) / m_super.inodesPerGroup;
    if (number == 0 || number > m_inodeLimit || group >= m_groups.size() ||
        m_groups[group].inodeTable == 0)
        return 0;
    return m_groups[group].inodeTable + ((number - 1) % m_super.inodesPerGroup) / inodesPerBlock();
}

quint32 Layout::firstInodeOf(qint64 block) const
{
    auto table = std::upper_bound(m_tables.begin(), m_tables.end(),
                                  std::make_pair(block, std::numeric_limits<quint32>::max()));
    if (table == m_tables.begin())
        return 0;
    --table;
    const qint64 within = block - table->first;
    if (within >= m_super.inodeTableBlocks())
        return 0;
    return table->second * m_super.inodesPerGroup + quint32(within) * inodesPerBlock() + 1;
}

quint32 Layout::inodeSeed(quint32 number, quint32 generation) const
{
    char bytes[8];
    qToLittleEndian(number, bytes);
    qToLittleEndian(generation, bytes + 4);
    return crc32c(m_super.checksumSeed, bytes, 8);
}

} // namespace services::recoveryd::ext
