#pragma once

#include <QByteArray>
#include <QString>

namespace services::recoveryd {

constexpr qint64 kExtSuperblockAt = 1024; ///< Byte of the volume; copies begin their block.
constexpr qint64 kExtSuperblockSize = 1024;
constexpr quint16 kExtMagic = 0xEF53;

/// Feature bits, as the kernel's Documentation/filesystems/ext4 names them.
namespace extfeature {

// compatible
constexpr quint32 kHasJournal = 0x4;
constexpr quint32 kSparseSuper2 = 0x200;
// incompatible
constexpr quint32 kFileTypes = 0x2;
constexpr quint32 kNeedsRecovery = 0x4;
constexpr quint32 kJournalDevice = 0x8;
constexpr quint32 kMetaGroups = 0x10;
constexpr quint32 kExtents = 0x40;
constexpr quint32 k64Bit = 0x80;
constexpr quint32 kChecksumSeed = 0x2000;
constexpr quint32 kLargeDirectories = 0x4000;
// read-only compatible
constexpr quint32 kSparseSuper = 0x1;
constexpr quint32 kHugeFiles = 0x8;
constexpr quint32 kGroupChecksums = 0x10;
constexpr quint32 kBigAlloc = 0x200;
constexpr quint32 kMetadataChecksums = 0x400;

} // namespace extfeature

/// The fields of an ext2/3/4 superblock that are used here; sizes in bytes unless told otherwise.
struct ExtSuperblock
{
    qint64 blockSize = 0;
    qint64 blockCount = 0;
    qint64 freeBlocks = 0;
    qint64 firstDataBlock = 0;
    qint64 blocksPerGroup = 0;
    qint64 clusterBlocks = 1; ///< Blocks in one bit of the block bitmaps.
    quint32 inodesPerGroup = 0;
    quint32 inodeCount = 0;
    int inodeSize = 0;
    int descriptorSize = 0;
    qint64 reservedTableBlocks = 0;
    quint32 firstMetaGroup = 0; ///< In descriptor blocks.
    quint32 compatible = 0;
    quint32 incompatible = 0;
    quint32 readOnlyCompatible = 0;
    quint32 backupGroups[2] = {0, 0}; ///< Of sparse_super2.
    quint32 groupNumber = 0;          ///< Of the group that this copy stands in; low 16 bits.
    quint32 journalInode = 0;         ///< 0 if the journal is on another device, or none.
    QByteArray journalMap;            ///< Backup of the journal inode's map; 60 bytes or empty.
    qint64 journalSize = 0;           ///< With that backup.
    qint64 madeMs = 0;                ///< When the file system was made; since the epoch.
    QByteArray uuid;
    quint32 checksumSeed = 0; ///< Of all metadata checksums.
    QString label;

    QString typeName() const;
    bool hasClusters() const { return hasReadOnly(extfeature::kBigAlloc); }
    bool hasSparseBackups() const { return hasReadOnly(extfeature::kSparseSuper); }
    bool hasMetadataChecksums() const { return hasReadOnly(extfeature::kMetadataChecksums); }
    bool hasCompatible(quint32 feature) const { return (compatible & feature) != 0; }
    bool hasIncompatible(quint32 feature) const { return (incompatible & feature) != 0; }
    bool hasReadOnly(quint32 feature) const { return (readOnlyCompatible & feature) != 0; }
    /// Whether the group holds a copy of the superblock.
    bool holdsBackup(qint64 group) const;
    qint64 groupCount() const;
    /// The first block of a group.
    qint64 groupStart(qint64 group) const { return firstDataBlock + group * blocksPerGroup; }
    qint64 inodeTableBlocks() const;
};

/// Reads a superblock of 1,024 bytes. False if the magic number is missing, the sizes contradict
/// each other, or its own checksum is wrong.
[[nodiscard]] bool parseExtSuperblock(const QByteArray &bytes, ExtSuperblock *super);

} // namespace services::recoveryd
