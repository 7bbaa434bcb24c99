#include "recoveryd/ext/extdirectory.h"

#include "recoveryd/devices/bytes.h"

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kMaxDirectoryBlocks = 16384;
constexpr int kEntryHeader = 8;

/// False once the visitor has had enough. Index blocks of large directories look like blocks of
/// unused entries.
bool visitBlock(const QByteArray &block, const EntryVisitor &visit)
{
    const Fields at(block);
    for (int entry = 0; entry + kEntryHeader <= block.size();) {
        const int length = at.le16(entry + 4);
        if (length < kEntryHeader || length > block.size() - entry)
            return true;
        const int nameLength = at.u8(entry + 6);
        const quint32 inode = at.le32(entry);
        if (inode != 0 && nameLength <= length - kEntryHeader &&
            !visit(block.mid(entry + kEntryHeader, nameLength), inode))
            return false;
        entry += length;
    }
    return true;
}

} // namespace

bool visitEntries(const ExtVolume &ext, const ExtInode &directory, const EntryVisitor &visit,
                  QString *error)
{
    QVector<BlockRun> runs;
    if (!directory.isDirectory())
        return true;
    if (!readBlockRuns(ext, directory, kMaxDirectoryBlocks, &runs, error))
        return false;
    for (const BlockRun &run : qAsConst(runs)) {
        for (qint64 i = 0; i < run.count; ++i) {
            const QByteArray block = ext.readBlock(run.physical + i, error);
            if (block.isEmpty())
                return false;
            if (!visitBlock(block, visit))
                return true;
        }
    }
    return true;
}

bool findInDirectory(const ExtVolume &ext, const ExtInode &directory, const QByteArray &name,
                     quint32 *inode, QString *error)
{
    *inode = 0;
    const auto compare = [&](const QByteArray &entry, quint32 number) {
        if (entry == name)
            *inode = number;
        return *inode == 0;
    };
    return visitEntries(ext, directory, compare, error);
}

} // namespace recoveryd
} // namespace services
