#pragma once

#include "recoveryd/xfs/inode.h"
#include "recoveryd/xfs/log.h"

namespace services::recoveryd::xfs {

/// An inode as an item of the log tells it.
struct LoggedInode
{
    quint64 number = 0;
    Inode inode; ///< `hasFork` only if the item has the data fork.
};

/// Pieces of a buffer, such as a directory block or a block of inodes.
struct LoggedBuffer
{
    struct Piece
    {
        int at = 0; ///< Bytes from the start of the buffer.
        QByteArray bytes;
    };

    qint64 offset = 0; ///< Byte of the volume.
    int length = 0;
    bool isCancelled = false; ///< The buffer is free; what older items say of it is void.
    bool holdsInodes = false;
    bool holdsEntries = false; ///< Of a directory.
    QVector<Piece> pieces;
};

struct LogItemHandlers
{
    std::function<void(const LoggedInode &item)> inode;
    std::function<void(const LoggedBuffer &item)> buffer;
};

/// Gives the items of a transaction, all buffers before the inodes: a block of inodes shows what
/// was there before the inodes' items changed it.
void forEachItem(const LogTransaction &transaction, const LogItemHandlers &handlers);

} // namespace services::recoveryd::xfs
