#pragma once

#include "recoveryd/ext/extvolume.h"

#include <QVector>

namespace services {
namespace recoveryd {

/// A run of blocks of a file: `count` blocks that begin at block `logical` of the file and at block
/// `physical` of the file system.
struct BlockRun
{
    qint64 logical = 0;
    qint64 physical = 0;
    qint64 count = 0;
};

constexpr quint32 kRootInode = 2;

struct ExtInode
{
    quint32 number = 0;
    QByteArray raw;
    qint64 size = 0;

    [[nodiscard]] static bool read(const ExtVolume &ext, quint32 number, ExtInode *inode,
                                   QString *error);
    bool isRegular() const;
    bool isDirectory() const;
    /// Its data blocks hold what only the owner's key makes readable.
    bool isEncrypted() const;
};

/// Where the file's data lie, by extent tree or block map, in the order of the file. Holes and
/// blocks that are reserved but never written have no run. Fails on a damaged tree, on data inside
/// the inode, and above `maxBlocks` blocks.
[[nodiscard]] bool readBlockRuns(const ExtVolume &ext, const ExtInode &inode, qint64 maxBlocks,
                                 QVector<BlockRun> *runs, QString *error);

} // namespace recoveryd
} // namespace services
