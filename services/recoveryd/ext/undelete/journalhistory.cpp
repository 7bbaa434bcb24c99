#include "recoveryd/ext/undelete/journalhistory.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/ext/undelete/blocksweep.h"
#include "recoveryd/ext/undelete/directoryblock.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd::ext {

namespace {

using Wanted = std::unordered_multimap<quint64, size_t>;

constexpr size_t kMaxUnplaced = 200000;

quint64 matchKey(quint32 slot, const Inode &inode)
{
    return (quint64(inode.generation) << 32 | quint32(inode.birth)) ^
           (quint64(slot) * 0x9E3779B97F4A7C15u);
}

bool isInodeBlock(const Layout &layout, const QByteArray &bytes)
{
    // Each slot is an inode or empty; other blocks rarely have a known type at all these places.
    int inodes = 0;
    for (quint32 slot = 0; slot < layout.inodesPerBlock(); ++slot) {
        Inode inode;
        const quint16 mode =
            qFromLittleEndian<quint16>(bytes.constData() + qint64(slot) * layout.super().inodeSize);
        if (parseInode(layout, bytes, slot, &inode))
            ++inodes;
        else if (mode != 0)
            return false;
    }
    return inodes > 0;
}

/// The blocks of the journal's file from its start to the first hole.
std::vector<std::pair<qint64, qint64>> journalRuns(const Layout &layout, const Inode &inode)
{
    std::vector<std::pair<qint64, qint64>> runs;
    const Blocks blocks(layout, nullptr);
    const quint32 seed = layout.inodeSeed(layout.super().journalInode, inode.generation);
    const BlockMap map = MapReader(blocks).read(inode, kNow, seed);
    qint64 logical = 0;
    for (const Run &run : map.runs) {
        if (run.logical != logical)
            break;
        runs.emplace_back(run.block, run.count);
        logical += run.count;
    }
    return runs;
}

} // namespace

std::unique_ptr<Journal> openJournal(const Layout &layout)
{
    const ExtSuperblock &super = layout.super();
    if (!super.hasCompatible(extfeature::kHasJournal) || super.journalInode == 0)
        return nullptr;
    const auto openBy = [&layout](const Inode &inode) {
        auto journal = std::make_unique<Journal>(layout);
        return journal->open(journalRuns(layout, inode)) ? std::move(journal) : nullptr;
    };
    Inode inode;
    const qint64 table = layout.blockOfInode(super.journalInode);
    const quint32 slot = (super.journalInode - 1) % super.inodesPerGroup % layout.inodesPerBlock();
    if (table > 0 && parseInode(layout, layout.readBlock(table), slot, &inode))
        if (auto journal = openBy(inode))
            return journal;
    if (super.journalMap.size() != int(inode.map.size()))
        return nullptr;
    inode = Inode();
    inode.mode = 0x8000;
    inode.size = super.journalSize;
    std::memcpy(inode.map.data(), super.journalMap.constData(), inode.map.size());
    if (Fields(super.journalMap).le16(0) == 0xF30A)
        inode.flags = Inode::Extents;
    return openBy(inode);
}

void readPending(Journal *journal, Layout *layout)
{
    const auto ignored = [](const Version &, const QByteArray &) {
    };
    const auto goesOn = [](qint64) {
        return true;
    };
    if (journal->sweep(ignored, goesOn))
        applyPending(*journal, layout);
}

void applyPending(const Journal &journal, Layout *layout)
{
    if (!journal.hasPending())
        return;
    for (const Version &version : journal.history().versions())
        if (journal.pending(version.block) == &version)
            layout->updateDescriptors(version.block, journal.read(version));
}

bool JournalHistory::read(Journal *journal, const Journal::GoesOn &goesOn)
{
    const auto placed = [this](const Version &version, const QByteArray &bytes) {
        takeBlock(version, bytes);
    };
    if (!journal->sweep(placed, goesOn))
        return false;
    for (const Journal::Stray &stray : journal->strays())
        if (!takeStray(journal, stray) && m_unplaced.size() < kMaxUnplaced)
            m_unplaced.push_back(stray);
    if (!m_unplaced.empty())
        matchByGeneration(journal, [&](qint64) { return goesOn(journal->size()); });
    journal->history().finish();
    return goesOn(journal->size());
}

void JournalHistory::takeBlock(const Version &version, const QByteArray &bytes)
{
    const quint32 first = m_layout.firstInodeOf(version.block);
    if (first != 0)
        takeInodes(first, bytes, version);
    else
        takeNames(bytes, version);
}

void JournalHistory::takeInodes(quint32 first, const QByteArray &bytes, const Version &version)
{
    for (quint32 slot = 0; slot < m_layout.inodesPerBlock(); ++slot) {
        Inode inode;
        if (!parseInode(m_layout, bytes, slot, &inode))
            continue;
        m_inodes->add(first + slot, inode, version.order, version.at, slot);
        if (inode.isDirectory() && inode.is(Inode::InlineData))
            takeInlineNames(first + slot, inode, bytes, slot, version.order);
    }
}

void JournalHistory::takeInlineNames(quint32 number, const Inode &inode, const QByteArray &bytes,
                                     quint32 slot, Order order)
{
    if (inode.links == 0)
        return;
    const QByteArray data = inlineDataOf(m_layout, bytes, slot);
    const quint32 owner = m_names->addOwner({0, number, Fields(data).le32(0), 0});
    visitInlineEntries(m_layout, data,
                       [&](const Entry &entry) { m_names->add(owner, entry, order); });
}

void JournalHistory::takeNames(const QByteArray &bytes, const Version &version)
{
    DirectoryBlock parsed;
    if (!parseDirectoryBlock(m_layout, bytes, &parsed))
        return;
    const quint32 owner =
        m_names->addOwner({version.block, parsed.self, parsed.parent, parsed.seed});
    visitEntries(m_layout, bytes,
                 [&](const Entry &entry) { m_names->add(owner, entry, version.order); });
}

/// A block whose descriptor is overwritten. Checksums tell which inodes it holds; a directory's
/// block says itself whose it is. False if it holds inodes that no checksum places.
bool JournalHistory::takeStray(Journal *journal, const Journal::Stray &stray)
{
    const QByteArray bytes = journal->read(stray.at);
    Version version = {0, stray.order, stray.at, false};
    for (quint32 slot = 0; slot < m_layout.inodesPerBlock(); ++slot) {
        Inode inode;
        if (!parseInode(m_layout, bytes, slot, &inode))
            continue;
        const quint32 number = numberByChecksum(m_layout, bytes, slot);
        if (number == 0)
            continue;
        version.block = m_layout.blockOfInode(number);
        journal->history().add(version);
        takeInodes(number - slot, bytes, version);
        return true;
    }
    if (!m_layout.super().hasMetadataChecksums() && isInodeBlock(m_layout, bytes))
        return false;
    takeNames(bytes, version);
    return true;
}

/// Places blocks of inodes by inodes that the table has at the same slot with the same generation
/// and time of birth: these outlive a deletion.
void JournalHistory::matchByGeneration(Journal *journal, const Journal::GoesOn &goesOn)
{
    Wanted wanted;
    for (size_t i = 0; i < m_unplaced.size(); ++i) {
        const QByteArray bytes = journal->read(m_unplaced[i].at);
        for (quint32 slot = 0; slot < m_layout.inodesPerBlock(); ++slot) {
            Inode inode;
            if (parseInode(m_layout, bytes, slot, &inode) && inode.generation != 0)
                wanted.emplace(matchKey(slot, inode), i);
        }
    }
    std::vector<qint64> places(m_unplaced.size(), 0);
    Ranges tables;
    for (const Group &group : m_layout.groups())
        if (group.inodeTable > 0)
            tables.append({group.inodeTable * m_layout.blockSize(),
                           m_layout.super().inodeTableBlocks() * m_layout.blockSize()});
    const auto visit = [&](qint64 block, const QByteArray &bytes) {
        for (quint32 slot = 0; slot < m_layout.inodesPerBlock(); ++slot) {
            Inode inode;
            if (!parseInode(m_layout, bytes, slot, &inode) || inode.generation == 0)
                continue;
            const auto range = wanted.equal_range(matchKey(slot, inode));
            for (auto it = range.first; it != range.second; ++it)
                places[it->second] = block;
        }
    };
    if (!BlockSweep(m_layout).run(joinedRanges(tables), visit, goesOn))
        return;
    for (size_t i = 0; i < m_unplaced.size(); ++i) {
        if (places[i] == 0)
            continue;
        const Version version = {places[i], m_unplaced[i].order, m_unplaced[i].at, false};
        journal->history().add(version);
        takeInodes(m_layout.firstInodeOf(places[i]), journal->read(version.at), version);
    }
}

} // namespace services::recoveryd::ext
