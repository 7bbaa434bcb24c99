#include "recoveryd/btrfs/btrfssupport.h"

#include "recoveryd/btrfs/btrfsscanner.h"

#include <algorithm>

namespace services::recoveryd {

namespace {

bool handles(const FileSystem &fileSystem)
{
    return fileSystem.type == QLatin1String("btrfs");
}

std::unique_ptr<Scanner> makeScanner(const ScanContext &context)
{
    return std::make_unique<btrfs::BtrfsScanner>(context);
}

bool freeRanges(const MediaReader &media, Ranges *ranges, QString *error)
{
    btrfs::BtrfsVolume volume(media);
    if (!volume.open()) {
        *error = QStringLiteral("Btrfs 超级块已损坏");
        return false;
    }
    return btrfs::btrfsFreeRanges(volume, ranges, error);
}

/// Each copy of the superblock says where on its volume it stands.
bool recogniseSuperblock(qint64 offset, const QByteArray &bytes, FoundVolume *found)
{
    btrfs::Superblock super;
    if (!btrfs::parseSuperblock(bytes, &super) ||
        std::find(btrfs::kSuperblockPlaces.begin(), btrfs::kSuperblockPlaces.end(), super.place) ==
            btrfs::kSuperblockPlaces.end() ||
        qint64(super.place) > offset)
        return false;
    found->type = QStringLiteral("btrfs");
    found->label = super.label;
    found->start = offset - qint64(super.place);
    found->size = super.deviceSize;
    found->isFromBackup = super.place != btrfs::kSuperblockPlaces.front();
    return true;
}

/// Where a device begins that has the node of `offset`; -1 if that is not sure. Which copy of the
/// node this is shows by where the other one is.
qint64 startByCopies(const MediaReader &media, qint64 offset, const btrfs::NodeView &node,
                     const btrfs::ChunkMap &chunks)
{
    const int copies = qMin(chunks.copies(node.address()), 2);
    for (int copy = 0; copy < copies; ++copy) {
        const qint64 place = chunks.map(node.address(), 1, copy).first().physical;
        if (place < 0 || place > offset)
            continue;
        const qint64 start = offset - place;
        const qint64 other =
            start + chunks.map(node.address(), 1, copies - 1 - copy).first().physical;
        const QByteArray header = media.read(other, btrfs::kHeaderSize);
        if (std::memcmp(header.constData(), node.bytes(), btrfs::kHeaderSize) == 0)
            return start;
    }
    return -1;
}

/// A leaf of the chunk tree tells where on its device it stands, and how large that is.
bool recogniseChunks(const MediaReader &media, qint64 offset, FoundVolume *found)
{
    constexpr int kDeviceItemSize = 98;
    const qint64 left = qMin<qint64>(btrfs::kMaxNodeSize, media.size() - offset);
    const QByteArray bytes = media.read(offset, left);
    btrfs::NodeFormat format;
    if (bytes.size() < btrfs::kMinNodeSize ||
        !btrfs::deriveFormat(bytes.constData(), bytes.size(), &format) ||
        !btrfs::canCheck(format.checksum))
        return false;
    const btrfs::NodeView leaf(bytes.constData(), format.nodeSize);
    btrfs::ChunkMap chunks;
    qint64 size = 0;
    int devices = 0;
    for (int i = 0; leaf.isLeaf() && i < leaf.count(); ++i) {
        const btrfs::ItemView item = leaf.item(i);
        if (item.key.type == btrfs::kChunkItem)
            chunks.add(item.key.offset, item.data, item.size);
        if (item.key.type != btrfs::kDeviceItem || item.size < kDeviceItemSize)
            continue;
        chunks.setDevice(btrfs::le64(item.data));
        size = qint64(btrfs::le64(item.data + 8));
        ++devices;
    }
    if (devices != 1 || size <= 0 || size > (qint64(1) << 60) || chunks.isEmpty())
        return false;
    const qint64 start = startByCopies(media, offset, leaf, chunks);
    if (start < 0)
        return false;
    found->type = QStringLiteral("btrfs");
    found->start = start;
    found->size = size;
    found->isFromBackup = true;
    return true;
}

bool recognise(const MediaReader &media, qint64 offset, const QByteArray &bytes, FoundVolume *found)
{
    if (bytes.size() < btrfs::kSuperblockSize)
        return false;
    if (std::memcmp(bytes.constData() + 0x40, "_BHRfS_M", 8) == 0)
        return recogniseSuperblock(offset, bytes, found);
    return btrfs::looksLikeNode(bytes.constData()) &&
           btrfs::le64(bytes.constData() + 88) == btrfs::kChunkTree &&
           recogniseChunks(media, offset, found);
}

} // namespace

FileSystemSupport btrfsSupport()
{
    return {handles, makeScanner, freeRanges, recognise};
}

} // namespace services::recoveryd
