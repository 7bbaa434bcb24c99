#include "recoveryd/xfs/logscan.h"

namespace services::recoveryd::xfs {

namespace {

/// Blocks of inodes are logged only where the lists of unlinked inodes change; the piece around
/// that field shows the inode as it was on disk just before it was freed.
void takeInodeBlock(const LoggedBuffer &item, quint64 lsn, const Geometry &geometry,
                    History *history)
{
    const int size = int(geometry.inodeSize);
    const int needed = geometry.isV5 ? 128 : kOldCoreSize;
    for (const LoggedBuffer::Piece &piece : item.pieces) {
        for (int at = (piece.at + size - 1) / size * size - piece.at;
             at + needed <= piece.bytes.size(); at += size) {
            const View view = View(piece.bytes).from(at);
            if (!isInode(view))
                continue;
            Inode inode;
            parseCore(view, &inode);
            if (inode.lsn == 0)
                inode.lsn = lsn;
            history->addEarlier(geometry.inodeAt(item.offset + piece.at + at), inode);
        }
    }
}

} // namespace

bool scanLog(const XfsVolume &volume, const LogScanTargets &targets, const Log::GoesOn &goesOn)
{
    const Geometry &geometry = volume.geometry();
    const Log log(volume.media(), geometry);
    return log.readHistory(
        [&](const LogTransaction &transaction) {
            LogItemHandlers handlers;
            handlers.buffer = [&](const LoggedBuffer &item) {
                if (item.offset > volume.media().size())
                    return;
                if (item.holdsInodes)
                    takeInodeBlock(item, transaction.lsn, geometry, &targets.history);
                targets.trees.add(item, transaction.lsn);
                targets.directories.readPieces(item, transaction.lsn);
            };
            handlers.inode = [&](const LoggedInode &item) {
                if (geometry.offsetOfInode(item.number) < 0)
                    return;
                targets.history.add(item.number, item.inode, true);
                targets.directories.readLogged(item.number, item.inode);
            };
            forEachItem(transaction, handlers);
        },
        goesOn);
}

} // namespace services::recoveryd::xfs
