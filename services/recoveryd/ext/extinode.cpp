#include "recoveryd/ext/extinode.h"

#include "recoveryd/devices/bytes.h"

namespace services {
namespace recoveryd {

namespace {

constexpr int kMapAt = 40; // 60 bytes: the root of the tree, or 15 block numbers
constexpr int kMapSize = 60;
constexpr quint32 kIsEncrypted = 0x800;
constexpr quint32 kUsesExtents = 0x80000;
constexpr quint32 kHasInlineData = 0x10000000;
constexpr int kDirectBlocks = 12;
constexpr int kMaxTreeDepth = 5;
constexpr quint16 kTreeMagic = 0xF30A;
constexpr quint16 kMaxWrittenLength = 32768; // longer ones are reserved, not written
constexpr int kMaxTreeNodes = 65536;

bool fail(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}

/// One walk through a file's tree or map.
class RunReader
{
public:
    RunReader(const ExtVolume &ext, qint64 blocks, QVector<BlockRun> *runs, QString *error)
        : m_ext(ext)
        , m_blocks(blocks)
        , m_runs(runs)
        , m_error(error)
    {}

    bool readTree(const QByteArray &node, int depthBelow)
    {
        const Fields at(node);
        const int entries = at.le16(2);
        const int depth = at.le16(6);
        const bool isRoot = depthBelow < 0;
        if (at.le16(0) != kTreeMagic || depth > kMaxTreeDepth || 12 + entries * 12 > node.size() ||
            (!isRoot && depth != depthBelow) || ++m_nodes > kMaxTreeNodes)
            return fail(m_error, QStringLiteral("extent 树损坏"));
        for (int i = 0; i < entries; ++i) {
            const int entry = 12 + i * 12;
            if (!(depth == 0 ? addExtent(at, entry) : followIndex(at, entry, depth)))
                return false;
        }
        return true;
    }

    bool readMap(const QByteArray &map)
    {
        const Fields at(map);
        qint64 logical = 0;
        for (int i = 0; i < kDirectBlocks && logical < m_blocks; ++i)
            if (!add(logical++, at.le32(i * 4), 1))
                return false;
        for (int level = 1; level <= 3 && logical < m_blocks; ++level)
            if (!readIndirect(at.le32((kDirectBlocks + level - 1) * 4), level, &logical))
                return false;
        return true;
    }

private:
    bool addExtent(const Fields &at, int entry)
    {
        const quint16 length = at.le16(entry + 4);
        if (length > kMaxWrittenLength)
            return true;
        return add(at.le32(entry), (qint64(at.le16(entry + 6)) << 32) | at.le32(entry + 8), length);
    }

    bool followIndex(const Fields &at, int entry, int depth)
    {
        const qint64 block = (qint64(at.le16(entry + 8)) << 32) | at.le32(entry + 4);
        const QByteArray node = m_ext.readBlock(block, m_error);
        return !node.isEmpty() && readTree(node, depth - 1);
    }

    /// How many blocks of the file an indirect block of the level stands for.
    qint64 reach(int level) const
    {
        qint64 blocks = 1;
        for (int i = 0; i < level; ++i)
            blocks *= m_ext.superblock().blockSize / 4;
        return blocks;
    }

    bool readIndirect(quint32 block, int level, qint64 *logical)
    {
        if (block == 0) {
            *logical += reach(level);
            return true;
        }
        if (++m_nodes > kMaxTreeNodes)
            return fail(m_error, QStringLiteral("块映射损坏"));
        const QByteArray bytes = m_ext.readBlock(block, m_error);
        if (bytes.isEmpty())
            return false;
        const Fields at(bytes);
        for (int i = 0; i < bytes.size() / 4 && *logical < m_blocks; ++i) {
            const quint32 next = at.le32(i * 4);
            if (!(level == 1 ? add((*logical)++, next, 1) : readIndirect(next, level - 1, logical)))
                return false;
        }
        return true;
    }

    /// Block 0 marks a hole in a map. What lies behind the file's end is left out.
    bool add(qint64 logical, qint64 physical, qint64 count)
    {
        if (physical == 0)
            return true;
        if (physical + count > m_ext.superblock().blockCount ||
            (!m_runs->isEmpty() && logical < m_runs->last().logical + m_runs->last().count))
            return fail(m_error, QStringLiteral("文件的块映射损坏"));
        count = qMin(count, m_blocks - logical);
        if (count <= 0)
            return true;
        if (!m_runs->isEmpty()) {
            BlockRun &last = m_runs->last();
            if (last.logical + last.count == logical && last.physical + last.count == physical) {
                last.count += count;
                return true;
            }
        }
        m_runs->append({logical, physical, count});
        return true;
    }

    const ExtVolume &m_ext;
    qint64 m_blocks;
    QVector<BlockRun> *m_runs;
    QString *m_error;
    int m_nodes = 0;
};

} // namespace

bool ExtInode::read(const ExtVolume &ext, quint32 number, ExtInode *inode, QString *error)
{
    inode->raw = ext.readInode(number, error);
    if (inode->raw.isEmpty())
        return false;
    const Fields at(inode->raw);
    inode->number = number;
    inode->size = qint64(at.le32(4)) | (qint64(at.le32(108) & 0x7FFFFFFF) << 32);
    return true;
}

bool ExtInode::isRegular() const
{
    return (Fields(raw).le16(0) & 0xF000) == 0x8000;
}

bool ExtInode::isDirectory() const
{
    return (Fields(raw).le16(0) & 0xF000) == 0x4000;
}

bool ExtInode::isEncrypted() const
{
    return (Fields(raw).le32(32) & kIsEncrypted) != 0;
}

bool readBlockRuns(const ExtVolume &ext, const ExtInode &inode, qint64 maxBlocks,
                   QVector<BlockRun> *runs, QString *error)
{
    runs->clear();
    const quint32 flags = Fields(inode.raw).le32(32);
    if (flags & kHasInlineData)
        return fail(error, QStringLiteral("文件内容存放在 inode 内，没有数据块"));
    const qint64 blockSize = ext.superblock().blockSize;
    const qint64 blocks = inode.size / blockSize + (inode.size % blockSize ? 1 : 0);
    if (blocks > maxBlocks)
        return fail(error,
                    QStringLiteral("文件过大：共 %1 个块，上限 %2").arg(blocks).arg(maxBlocks));
    RunReader reader(ext, blocks, runs, error);
    const QByteArray map = inode.raw.mid(kMapAt, kMapSize);
    return (flags & kUsesExtents) ? reader.readTree(map, -1) : reader.readMap(map);
}

} // namespace recoveryd
} // namespace services
