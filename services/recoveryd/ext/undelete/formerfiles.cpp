#include "recoveryd/ext/undelete/formerfiles.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/crc32c.h"

#include <algorithm>

namespace services::recoveryd::ext {

namespace {

constexpr size_t kMaxInodes = 16 * 1000 * 1000;
constexpr Order kThen = 1; ///< All that is left of the earlier file system is of one time.

} // namespace

FormerFiles::FormerFiles(const Layout &layout)
    : m_layout(layout)
    , m_blocks(layout, nullptr)
    , m_maps(m_blocks)
    , m_tree(m_names, m_noHistory)
{
    m_maps.setChecked(false);
}

void FormerFiles::takeInode(quint32 number, const Inode &inode, const QByteArray &block,
                            quint32 slot)
{
    const bool isWanted = inode.isRegular() || inode.isDirectory();
    if (isWanted && inode.links > 0 && inode.deletionTime == 0 && inode.size > 0 &&
        inode.hasMap() && number >= 11 && m_numbers.size() < kMaxInodes)
        m_numbers.push_back({number, seedByInode(m_layout, block, slot, number)});
}

/// Inodes with right checksums all tell the same start value.
void FormerFiles::findSeed()
{
    std::unordered_map<quint32, int> votes;
    for (const Found &found : m_numbers)
        ++votes[found.seed];
    for (const auto &vote : votes)
        if (vote.first != 0 && vote.second > 1 && vote.second * 2 > int(m_numbers.size()))
            m_seed = vote.first;
    if (m_seed != 0)
        m_numbers.erase(std::remove_if(m_numbers.begin(), m_numbers.end(),
                                       [this](const Found &found) { return found.seed != m_seed; }),
                        m_numbers.end());
}

quint32 FormerFiles::seedOf(quint32 number, quint32 generation) const
{
    char bytes[8];
    qToLittleEndian(number, bytes);
    qToLittleEndian(generation, bytes + 4);
    return crc32c(m_seed, bytes, 8);
}

bool FormerFiles::readInode(quint32 number, Inode *inode, QByteArray *block, quint32 *slot) const
{
    const qint64 table = m_layout.blockOfInode(number);
    *slot = (number - 1) % m_layout.super().inodesPerGroup % m_layout.inodesPerBlock();
    // The table is read in its order: most inodes are in the block of the one before.
    if (m_layout.firstInodeOf(table) + *slot != number)
        return false;
    *block = m_layout.readBlock(table);
    return parseInode(m_layout, *block, *slot, inode);
}

void FormerFiles::takeBlock(qint64 block, const DirectoryBlock &parsed, const QByteArray &bytes)
{
    const quint32 owner = m_names.addOwner({block, parsed.self, parsed.parent, parsed.seed});
    if (parsed.self != 0 && parsed.seed != 0)
        m_tree.addSeed(parsed.seed, parsed.self);
    visitEntries(m_layout, bytes, [&](const Entry &entry) { m_names.add(owner, entry, kThen); });
}

/// Directories whose inodes are left tell which blocks were theirs.
void FormerFiles::takeDirectories()
{
    for (const Found &found : m_numbers) {
        Inode inode;
        QByteArray block;
        quint32 slot = 0;
        if (!readInode(found.number, &inode, &block, &slot) || !inode.isDirectory())
            continue;
        if (inode.is(Inode::Encrypted))
            m_tree.addEncrypted(found.number);
        if (inode.is(Inode::InlineData)) {
            const QByteArray data = inlineDataOf(m_layout, block, slot);
            const quint32 owner = m_names.addOwner({0, found.number, Fields(data).le32(0), 0});
            visitInlineEntries(m_layout, data,
                               [&](const Entry &entry) { m_names.add(owner, entry, kThen); });
            continue;
        }
        const quint32 seed = m_seed != 0 ? seedOf(found.number, inode.generation) : 0;
        const BlockMap map = m_maps.read(inode, kNow, seed);
        if (seed != 0)
            m_tree.addSeed(seed, found.number);
        m_tree.addBlocks(found.number, map, kThen, kThen);
        const qint64 limit = inode.size / m_layout.blockSize();
        for (const Run &run : map.runs)
            for (qint64 i = 0; i < run.count && run.logical + i < limit; ++i) {
                const QByteArray bytes = m_layout.readBlock(run.block + i);
                DirectoryBlock parsed;
                if (parseDirectoryBlock(m_layout, bytes, &parsed) &&
                    (parsed.self == 0 || parsed.self == found.number) &&
                    (parsed.seed == 0 || seed == 0 || parsed.seed == seed)) {
                    parsed.self = found.number;
                    takeBlock(run.block + i, parsed, bytes);
                }
            }
    }
}

Finding FormerFiles::describe(quint32 number, const Inode &inode, const QByteArray &block,
                              quint32 slot)
{
    Finding finding;
    finding.modifiedMs = inode.modifiedMs;
    finding.recency = kThen;
    finding.content.size = inode.size;
    if (inode.is(Inode::InlineData)) {
        finding.content.inlineBytes = inlineDataOf(m_layout, block, slot);
        finding.isMapComplete = finding.content.inlineBytes.size() == inode.size;
        return finding;
    }
    const quint32 seed = m_seed != 0 ? seedOf(number, inode.generation) : 0;
    const BlockMap map = m_maps.read(inode, kNow, seed);
    finding.isMapComplete = map.isComplete;
    finding.content = contentOf(m_blocks, map, inode.size, kThen, kThen);
    if (inode.is(Inode::Encrypted))
        finding.contentCheck = Finding::Check::Failed;
    return finding;
}

bool FormerFiles::report(qint64 formatMs, ScanObserver &observer)
{
    findSeed();
    m_maps.setChecked(m_seed != 0);
    takeDirectories();
    for (const Found &found : m_numbers) {
        Inode inode;
        QByteArray block;
        quint32 slot = 0;
        if (!observer.mayGoOn())
            return false;
        if (!readInode(found.number, &inode, &block, &slot) || !inode.isRegular())
            continue;
        Finding finding = describe(found.number, inode, block, slot);
        finding.deletedMs = formatMs;
        if (finding.content.extents.isEmpty() && finding.content.inlineBytes.isEmpty())
            continue;
        NameQuestion question;
        question.number = found.number;
        question.type = inode.entryType();
        question.links = inode.links;
        if (!m_tree.reportAt(m_tree.placesOf(question), finding, observer))
            return false;
    }
    return true;
}

} // namespace services::recoveryd::ext
