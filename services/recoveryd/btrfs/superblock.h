#pragma once

#include "recoveryd/btrfs/node.h"
#include "recoveryd/devices/mediareader.h"

#include <QVector>

namespace services::recoveryd::btrfs {

/// Where a tree begins. A generation of 0: not known.
struct TreePointer
{
    quint64 address = 0;
    quint64 generation = 0;
    int level = 0;
};

struct Superblock
{
    NodeFormat format;
    quint64 place = 0; ///< Where on the volume it says it stands, in bytes.
    quint64 generation = 0;
    TreePointer rootTree;
    TreePointer chunkTree;
    TreePointer logTree;              ///< Address 0: there is none.
    QVector<TreePointer> olderRoots;  ///< Root trees of the last transactions.
    QVector<TreePointer> olderChunks; ///< Chunk trees of the same.
    quint64 deviceId = 1;
    qint64 deviceSize = 0;
    QByteArray systemChunks; ///< Keys and chunk items of the chunks that the chunk tree is in.
    bool hasFreeSpaceTree = false;
    QString label;
};

/// The places of the superblock and of its copies. Bytes.
constexpr std::array<quint64, 3> kSuperblockPlaces = {64ull << 10, 64ull << 20, 256ull << 30};
constexpr int kSuperblockSize = 4096;

/// Checks magic, checksum and sizes.
[[nodiscard]] bool parseSuperblock(const QByteArray &bytes, Superblock *superblock);
/// The newest of the superblock and its copies that belong to one file system: that of the first
/// one that is good. False if none is.
[[nodiscard]] bool readSuperblock(const MediaReader &media, Superblock *superblock);

} // namespace services::recoveryd::btrfs
