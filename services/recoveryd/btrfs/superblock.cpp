#include "recoveryd/btrfs/superblock.h"

#include "recoveryd/devices/bytes.h"

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

constexpr int kChecksumArea = 32;
constexpr int kSystemChunksAt = 0x32B;
constexpr int kSystemChunksSize = 2048;
constexpr int kBackupsAt = 0xB2B;
constexpr int kBackupSize = 168;
constexpr int kBackups = 4;
constexpr quint64 kHasMetadataId = 1 << 10;
constexpr quint64 kFreeSpaceTreeFlags = 3; // it is there, and it is valid

bool isGoodSize(quint32 size)
{
    return isPowerOfTwo(size) && size >= quint32(kMinNodeSize) && size <= quint32(kMaxNodeSize);
}

QString labelAt(const QByteArray &bytes)
{
    const QByteArray raw = bytes.mid(0x12B, 256);
    return QString::fromUtf8(raw.constData(), int(qstrnlen(raw.constData(), uint(raw.size()))))
        .trimmed();
}

void readBackups(const Fields &fields, Superblock *super)
{
    for (int i = 0; i < kBackups; ++i) {
        const int at = kBackupsAt + i * kBackupSize;
        const TreePointer root = {fields.le64(at), fields.le64(at + 8), fields.u8(at + 152)};
        const TreePointer chunks = {fields.le64(at + 16), fields.le64(at + 24),
                                    fields.u8(at + 153)};
        if (root.address != 0)
            super->olderRoots.append(root);
        if (chunks.address != 0)
            super->olderChunks.append(chunks);
    }
    const auto newerFirst = [](const TreePointer &a, const TreePointer &b) {
        return a.generation > b.generation;
    };
    std::sort(super->olderRoots.begin(), super->olderRoots.end(), newerFirst);
    std::sort(super->olderChunks.begin(), super->olderChunks.end(), newerFirst);
}

} // namespace

bool parseSuperblock(const QByteArray &bytes, Superblock *superblock)
{
    const Fields fields(bytes);
    if (bytes.size() < kSuperblockSize || !fields.isAt(0x40, "_BHRfS_M", 8))
        return false;
    Superblock super;
    const quint16 kind = fields.le16(0xC4);
    if (kind > quint16(ChecksumKind::Blake2b) || !isGoodSize(fields.le32(0x94)) ||
        !isGoodSize(fields.le32(0x90)))
        return false;
    super.format.checksum = ChecksumKind(kind);
    super.format.nodeSize = int(fields.le32(0x94));
    super.format.sectorSize = int(fields.le32(0x90));
    const bool hasMetadataId = (fields.le64(0xBC) & kHasMetadataId) != 0;
    super.format.id = fsIdAt(bytes.constData() + (hasMetadataId ? 0x23B : 0x20));
    if (canCheck(super.format.checksum) &&
        !matchesChecksum(super.format.checksum, bytes.constData() + kChecksumArea,
                         kSuperblockSize - kChecksumArea, bytes.constData()))
        return false;
    super.place = fields.le64(0x30);
    super.generation = fields.le64(0x48);
    super.rootTree = {fields.le64(0x50), super.generation, fields.u8(0xC6)};
    super.chunkTree = {fields.le64(0x58), fields.le64(0xA4), fields.u8(0xC7)};
    super.logTree = {fields.le64(0x60), 0, fields.u8(0xC8)};
    super.deviceId = fields.le64(0xC9);
    super.deviceSize = qint64(fields.le64(0xD1));
    super.hasFreeSpaceTree = (fields.le64(0xB4) & kFreeSpaceTreeFlags) == kFreeSpaceTreeFlags;
    const quint32 chunks = fields.le32(0xA0);
    if (chunks > quint32(kSystemChunksSize) || super.deviceSize <= 0 ||
        super.deviceSize > (qint64(1) << 60))
        return false;
    super.systemChunks = bytes.mid(kSystemChunksAt, int(chunks));
    super.label = labelAt(bytes);
    readBackups(fields, &super);
    *superblock = super;
    return true;
}

bool readSuperblock(const MediaReader &media, Superblock *superblock)
{
    bool isFound = false;
    for (quint64 place : kSuperblockPlaces) {
        Superblock super;
        if (qint64(place) > media.size() - kSuperblockSize ||
            !parseSuperblock(media.read(qint64(place), kSuperblockSize), &super) ||
            super.place != place)
            continue;
        const bool isOther = isFound && super.format.id != superblock->format.id;
        if (isOther || (isFound && super.generation <= superblock->generation))
            continue;
        *superblock = super;
        isFound = true;
    }
    return isFound;
}

} // namespace services::recoveryd::btrfs
