#include "recoveryd/xfs/blocksweep.h"

#include "recoveryd/xfs/directory.h"
#include "recoveryd/xfs/inode.h"

namespace services::recoveryd::xfs {

bool BlockSweep::run(const Ranges &ranges, ScanObserver &observer, qint64 doneBefore)
{
    constexpr qint64 kPiece = 4 * 1024 * 1024;
    const int step = int(m_geometry.blockSize);
    qint64 done = doneBefore;
    QByteArray piece;
    for (const Range &range : ranges) {
        for (qint64 at = range.start; at < range.end(); at += kPiece) {
            if (!observer.mayGoOn() || m_media.isGone())
                return false;
            const qint64 length = qMin(kPiece, range.end() - at);
            // A directory's block that begins in the piece may end behind it.
            piece.resize(int(length + m_geometry.directoryBlockSize));
            m_media.read(at, piece.data(), piece.size());
            for (int i = 0; i + step <= length; i += step)
                look(piece, i, at + i);
            done += length;
            observer.advanced(done);
        }
    }
    return true;
}

void BlockSweep::look(const QByteArray &piece, int at, qint64 offset)
{
    const View view(piece.constData() + at, int(m_geometry.blockSize));
    if (isInode(view))
        m_handlers.inodes(offset, QByteArray::fromRawData(view.at(0), view.size()));
    else if (directoryHead(view).size > 0)
        m_handlers.entries(offset,
                           QByteArray::fromRawData(view.at(0), m_geometry.directoryBlockSize));
    else if (view.u32(0) == 0x58465342U) // XFSB
        m_handlers.superblock(offset, QByteArray(view.at(0), kSuperblockSize));
}

} // namespace services::recoveryd::xfs
