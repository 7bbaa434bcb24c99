#pragma once

#include <QtEndian>

#include <array>
#include <cstring>

/// Structures of Btrfs on the medium, after "Btrfs design" and "On-disk format" of the Btrfs
/// documentation and the Linux kernel's include/uapi/linux/btrfs_tree.h. All numbers are
/// little-endian.
namespace services::recoveryd::btrfs {

using FsId = std::array<char, 16>;

// Trees, as owners of their nodes.
constexpr quint64 kRootTree = 1;
constexpr quint64 kExtentTree = 2;
constexpr quint64 kChunkTree = 3;
constexpr quint64 kDeviceTree = 4;
constexpr quint64 kMainTree = 5; ///< The top-level subvolume.
constexpr quint64 kChecksumTree = 7;
constexpr quint64 kFreeSpaceTree = 10;
constexpr quint64 kFirstSubvolume = 256;
constexpr quint64 kLastSubvolume = quint64(-256);
constexpr quint64 kLogTree = quint64(-6);

/// The root directory of each subvolume.
constexpr quint64 kRootFolder = 256;

// Types of items.
constexpr quint8 kInodeItem = 1;
constexpr quint8 kInodeReference = 12;
constexpr quint8 kInodeExtendedReference = 13;
constexpr quint8 kFolderIndex = 96;
constexpr quint8 kExtentData = 108;
constexpr quint8 kChecksums = 128;
constexpr quint8 kRootItem = 132;
constexpr quint8 kRootReference = 156;
constexpr quint8 kExtentItem = 168;
constexpr quint8 kMetadataItem = 169;
constexpr quint8 kFreeSpaceExtent = 199;
constexpr quint8 kFreeSpaceBitmap = 200;
constexpr quint8 kDeviceExtent = 204;
constexpr quint8 kDeviceItem = 216;
constexpr quint8 kChunkItem = 228;

// Flags of chunks and block groups.
constexpr quint64 kDataChunk = 1;
constexpr quint64 kSystemChunk = 2;
constexpr quint64 kMetadataChunk = 4;
constexpr quint64 kRaid0 = 1 << 3;
constexpr quint64 kRaid10 = 1 << 6;
constexpr quint64 kRaid5 = 1 << 7;
constexpr quint64 kRaid6 = 1 << 8;

constexpr int kHeaderSize = 101;
constexpr int kItemSize = 25;
constexpr int kPointerSize = 33;
constexpr int kInodeItemSize = 160;
constexpr int kExtentHeadSize = 21; ///< Of an extent item; the bytes of an inline one follow.
constexpr int kExtentItemSize = 53;
constexpr int kChunkItemSize = 48; ///< Without its stripes.
constexpr int kStripeSize = 32;
constexpr int kMaxLevel = 7;
constexpr int kMinNodeSize = 4096;
constexpr int kMaxNodeSize = 65536;
constexpr qint64 kNodeAlignment = 4096;

inline quint16 le16(const char *at)
{
    return qFromLittleEndian<quint16>(at);
}
inline quint32 le32(const char *at)
{
    return qFromLittleEndian<quint32>(at);
}
inline quint64 le64(const char *at)
{
    return qFromLittleEndian<quint64>(at);
}

struct Key
{
    quint64 id = 0; ///< An inode, a tree, an address: what the type says.
    quint8 type = 0;
    quint64 offset = 0;

    static Key at(const char *bytes) { return {le64(bytes), quint8(bytes[8]), le64(bytes + 9)}; }
};

inline bool operator<(const Key &a, const Key &b)
{
    return a.id != b.id ? a.id < b.id : a.type != b.type ? a.type < b.type : a.offset < b.offset;
}

inline FsId fsIdAt(const char *bytes)
{
    FsId id;
    std::memcpy(id.data(), bytes, id.size());
    return id;
}

/// Whether a tree holds files.
inline bool isFileTree(quint64 owner)
{
    return owner == kMainTree || (owner >= kFirstSubvolume && owner <= kLastSubvolume);
}

} // namespace services::recoveryd::btrfs
