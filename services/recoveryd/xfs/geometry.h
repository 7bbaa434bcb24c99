#pragma once

#include "recoveryd/devices/mediareader.h"

#include <QByteArray>
#include <QString>
#include <QVector>

namespace services::recoveryd::xfs {

/// What a superblock says about a volume, and the arithmetic that follows from it. The structures
/// are those of "XFS Algorithms & Data Structures" and of fs/xfs/libxfs/xfs_format.h in Linux.
struct Geometry
{
    quint32 blockSize = 0;
    quint32 sectorSize = 512;
    quint32 inodeSize = 0;
    quint32 agBlocks = 0; ///< Blocks of an allocation group; the last one may be smaller.
    quint32 agCount = 0;
    quint64 blocks = 0;
    quint64 logStart = 0; ///< 0: the log is on another device.
    quint32 logBlocks = 0;
    quint64 rootInode = 0;      ///< 0: not known.
    QVector<quint64> ownInodes; ///< Files of the file system's own: realtime maps and quotas.
    int agBlockLog = 0;         ///< Bits of a block number within its group.
    int inodesPerBlockLog = 0;  ///< Bits of an inode number within its block.
    int directoryBlockSize = 0;
    bool isV5 = false; ///< With checksums, owners and log sequence numbers.
    bool hasFileTypes = false;
    bool hasSparseChunks = false;
    QByteArray uuid;     ///< What structures carry as their volume's mark.
    QByteArray userUuid; ///< What the user sees; of the log's headers.
    QString label;

    qint64 size() const { return qint64(blocks) * blockSize; }
    qint64 agStart(quint32 ag) const { return qint64(ag) * agBlocks * blockSize; }
    quint32 blocksOf(quint32 ag) const;
    /// Byte of block `block` of a group; -1 outside the volume.
    qint64 offsetInAg(quint32 ag, quint32 block) const;
    /// Byte of a block number as extents hold it; -1 outside the volume.
    qint64 offsetOfBlock(quint64 block) const;
    /// Byte of an inode; -1 outside the volume.
    qint64 offsetOfInode(quint64 number) const;
    /// The inode whose place is at byte `offset`.
    quint64 inodeAt(qint64 offset) const;
    quint64 inodeNumber(quint32 ag, quint32 numberInAg) const;
};

constexpr int kSuperblockSize = 512;

/// Reads a superblock and checks that its numbers agree with each other.
[[nodiscard]] bool parseSuperblock(const QByteArray &bytes, Geometry *geometry);

/// Number of the allocation group whose head begins at byte `offset`, as its other headers tell;
/// -1 if neither is there.
qint64 groupAt(const MediaReader &media, qint64 offset, const Geometry &geometry);

/// The superblock at the start of the volume, or a copy at the start of another group. False if no
/// sound one is found.
[[nodiscard]] bool findGeometry(const MediaReader &media, Geometry *geometry);

} // namespace services::recoveryd::xfs
