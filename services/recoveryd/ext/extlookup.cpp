#include "recoveryd/ext/extlookup.h"

#include "recoveryd/devices/bytes.h"

#include <QStringList>

namespace services {
namespace recoveryd {

namespace {

constexpr quint32 kRootInode = 2;
constexpr qint64 kMaxDirectoryBlocks = 16384;
constexpr int kEntryHeader = 8;

/// The inode that the block of entries has for the name; 0 if it is not there. Index blocks of
/// large directories look like blocks of unused entries.
quint32 findInBlock(const QByteArray &block, const QByteArray &name)
{
    const Fields at(block);
    for (int entry = 0; entry + kEntryHeader <= block.size();) {
        const int length = at.le16(entry + 4);
        if (length < kEntryHeader || length > block.size() - entry)
            return 0;
        const int nameLength = at.u8(entry + 6);
        const quint32 inode = at.le32(entry);
        if (inode != 0 && nameLength == name.size() &&
            at.isAt(entry + kEntryHeader, name.constData(), nameLength))
            return inode;
        entry += length;
    }
    return 0;
}

bool findInDirectory(const ExtVolume &ext, const ExtInode &directory, const QByteArray &name,
                     quint32 *inode, QString *error)
{
    QVector<BlockRun> runs;
    if (!readBlockRuns(ext, directory, kMaxDirectoryBlocks, &runs, error))
        return false;
    *inode = 0;
    for (const BlockRun &run : qAsConst(runs)) {
        for (qint64 i = 0; i < run.count && *inode == 0; ++i) {
            const QByteArray block = ext.readBlock(run.physical + i, error);
            if (block.isEmpty())
                return false;
            *inode = findInBlock(block, name);
        }
    }
    return true;
}

} // namespace

bool lookUp(const ExtVolume &ext, const QString &path, ExtInode *inode, QString *error)
{
    if (!ExtInode::read(ext, kRootInode, inode, error))
        return false;
    const QStringList parts = path.split(QLatin1Char('/'));
    for (const QString &part : parts) {
        if (part.isEmpty())
            continue;
        quint32 next = 0;
        if (inode->isDirectory() && !findInDirectory(ext, *inode, part.toUtf8(), &next, error))
            return false;
        if (next == 0) {
            if (error)
                *error = QStringLiteral("文件系统中没有 %1").arg(path);
            return false;
        }
        if (!ExtInode::read(ext, next, inode, error))
            return false;
    }
    return true;
}

} // namespace recoveryd
} // namespace services
