#include "recoveryd/ext/undelete/extscanner.h"

#include "recoveryd/ext/undelete/blocksweep.h"
#include "recoveryd/ext/undelete/freespace.h"

#include <QElapsedTimer>

#include <algorithm>

namespace services::recoveryd::ext {

namespace {

// A quick scan looks for the directories of an earlier file system, and for indirect blocks, where
// the kernel puts them: at the start of the groups.
constexpr qint64 kQuickSweepOfGroup = 8 * 1024 * 1024;
constexpr qint64 kQuickSweep = 256 * 1024 * 1024;
constexpr qint64 kQuickChecksMs = 3000;

} // namespace

ExtScanner::ExtScanner(const ScanContext &context)
    : m_context(context)
    , m_layout(*m_context.media)
    , m_tree(m_names, m_inodes)
{
    m_isOpen = m_layout.open(&m_openError);
    if (!m_isOpen)
        return;
    m_journal = openJournal(m_layout);
    m_blocks = std::make_unique<Blocks>(m_layout, m_journal.get());
    m_maps = std::make_unique<MapReader>(*m_blocks);
    m_walk = std::make_unique<VolumeWalk>(*m_blocks, &m_names, &m_tree, m_maps.get());
    m_walk->setFilter([this](const Entry &entry) { return isWanted(entry); });
    m_former = std::make_unique<FormerFiles>(m_layout);
    readFree();
    m_tree.setLoader([this](quint32 number) { m_walk->loadDirectory(number); });
}

void ExtScanner::readFree()
{
    if (!readFreeSpace(*m_blocks, &m_free, nullptr))
        m_free = {{0, m_context.media->size() / m_layout.blockSize() * m_layout.blockSize()}};
}

QString ExtScanner::phaseText() const
{
    return m_layout.isHeadDamaged()
               ? QStringLiteral("超级块已损坏，正在按备份读取 ext 日志与元数据")
               : QStringLiteral("正在读取 ext 日志与元数据");
}

qint64 ExtScanner::totalWork() const
{
    if (!m_isOpen)
        return 0;
    const qint64 tables = m_walk->tableBytes(m_context.request.isDeep());
    return (m_journal ? m_journal->size() : 0) + tables * (m_context.listsExisting ? 2 : 1) +
           (m_context.request.isDeep() ? totalLength(m_free) : 0);
}

bool ExtScanner::scan(ScanObserver &observer, QString *error)
{
    if (!m_isOpen) {
        *error = m_openError;
        return false;
    }
    const ExtSuperblock &super = m_layout.super();
    const bool isEnded = !scanAll(observer);
    if (isEnded || m_journal || !super.hasCompatible(extfeature::kHasJournal))
        return true;
    *error = super.journalInode == 0
                 ? QStringLiteral("文件系统的日志保存在另一设备上，已删除文件只能由深度扫描查找")
                 : QStringLiteral("文件系统的日志已损坏，已删除文件只能由深度扫描查找");
    return false;
}

VolumeWalk::GoesOn ExtScanner::progress(ScanObserver &observer, qint64 before)
{
    return [this, &observer, before](qint64 done) {
        m_done = before + done;
        observer.advanced(m_done);
        return observer.mayGoOn();
    };
}

bool ExtScanner::scanAll(ScanObserver &observer)
{
    if (m_journal) {
        if (!readJournal(observer) || !readCurrentInodes(observer))
            return false;
        m_inodes.finish(*m_journal);
        m_isReported.assign(m_inodes.lives().size(), false);
        prepareDirectories();
        if (!reportLives(true, observer))
            return false;
    }
    if (!walkTables(observer) || !sweepFreeSpace(observer) ||
        !m_walk->loadDirectories(progress(observer, m_done)))
        return false;
    m_tree.forget();
    if (!reportLives(false, observer) || !reportStanding(observer) ||
        (m_context.listsExisting && !reportExisting(observer)))
        return false;
    return reportFormer(observer);
}

bool ExtScanner::readJournal(ScanObserver &observer)
{
    JournalHistory history(m_layout, &m_inodes, &m_names);
    if (!history.read(m_journal.get(), progress(observer, 0)))
        return false;
    // Descriptors which say what is in use may be among what has yet to be written.
    applyPending(*m_journal, &m_layout);
    if (m_journal->hasPending())
        readFree();
    return true;
}

/// What the volume says now of the inodes that the journal remembers.
bool ExtScanner::readCurrentInodes(ScanObserver &observer)
{
    std::vector<quint32> numbers;
    for (const Life &life : m_inodes.lives())
        numbers.push_back(life.number);
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    const InodeUse use(*m_blocks);
    qint64 blockRead = 0;
    QByteArray bytes;
    for (quint32 number : numbers) {
        const qint64 block = m_layout.blockOfInode(number);
        if (block == 0)
            continue;
        if (block != blockRead) {
            if (!observer.mayGoOn())
                return false;
            bytes = m_blocks->current(block);
            blockRead = block;
        }
        Inode inode;
        const quint32 slot =
            (number - 1) % m_layout.super().inodesPerGroup % m_layout.inodesPerBlock();
        if (parseInode(m_layout, bytes, slot, &inode))
            m_inodes.addCurrent(number, inode, use.isInUse(number));
    }
    return true;
}

/// Whose blocks the directories' blocks were.
void ExtScanner::prepareDirectories()
{
    for (const Life &life : m_inodes.lives()) {
        if (life.type != 2)
            continue;
        const quint32 seed = m_layout.inodeSeed(life.number, life.generation);
        m_tree.addSeed(seed, life.number);
        for (int index = life.states; index >= 0; index = m_inodes.state(index).next) {
            const InodeState &state = m_inodes.state(index);
            if (state.inode.is(Inode::Encrypted))
                m_tree.addEncrypted(life.number);
            const BlockMap map = m_maps->read(state.inode, state.last, seed);
            m_tree.addBlocks(life.number, map, state.first, state.last);
            // The blocks of a removed directory are freed before their last state is written, so
            // that the volume still has the one before.
            if (!life.isCurrent)
                m_walk->takeRemains(life.number, map, seed, state.last);
        }
    }
}

bool ExtScanner::reportLives(bool onlyFull, ScanObserver &observer)
{
    FindingMaker maker(*m_blocks, m_inodes, *m_maps, m_tree);
    for (size_t i = 0; i < m_inodes.lives().size(); ++i) {
        if (m_isReported[i])
            continue;
        if (i % 256 == 0 && !observer.mayGoOn())
            return false;
        const auto outcome = maker.reportLife(m_inodes.lives()[i], onlyFull, observer);
        if (outcome == FindingMaker::Outcome::Ended)
            return false;
        m_isReported[i] = outcome == FindingMaker::Outcome::Done;
    }
    return true;
}

/// Names of files that still exist are of interest only where these are listed.
bool ExtScanner::isWanted(const Entry &entry) const
{
    return m_context.listsExisting || entry.type == 2 || entry.type == 0 ||
           m_inodes.hasNumber(entry.number) ||
           std::binary_search(m_standing.begin(), m_standing.end(), entry.number);
}

bool ExtScanner::walkTables(ScanObserver &observer)
{
    const auto visit = [this](quint32 number, const Inode &inode, bool isInUse,
                              const QByteArray &block, quint32 slot) {
        if (isInUse && inode.links > 0 && inode.isDirectory())
            m_walk->addDirectory(number, inode, block, slot);
        else if (!isInUse)
            m_former->takeInode(number, inode, block, slot);
        if (!isInUse)
            takeStanding(number, inode);
        return true;
    };
    if (!m_walk->visitInodes(m_context.request.isDeep(), visit, progress(observer, m_done)))
        return false;
    std::sort(m_standing.begin(), m_standing.end());
    return true;
}

/// Of lives with a state in the journal more is known.
void ExtScanner::takeStanding(quint32 number, const Inode &inode)
{
    constexpr size_t kMaxStanding = 16 * 1000 * 1000;
    if (inode.links > 0 || inode.deletionTime == 0 || !inode.isRegular() || inode.size <= 0 ||
        !inode.hasMap() || inode.is(Inode::InlineData) || m_standing.size() >= kMaxStanding)
        return;
    const Life *const life = m_inodes.lifeAt(number, kNow);
    if (!life || life->states < 0 || life->generation != inode.generation)
        m_standing.push_back(number);
}

bool ExtScanner::reportStanding(ScanObserver &observer)
{
    FindingMaker maker(*m_blocks, m_inodes, *m_maps, m_tree);
    for (quint32 number : m_standing) {
        const qint64 block = m_layout.blockOfInode(number);
        if (block == 0)
            continue;
        if (!observer.mayGoOn())
            return false;
        Inode inode;
        const quint32 slot =
            (number - 1) % m_layout.super().inodesPerGroup % m_layout.inodesPerBlock();
        if (parseInode(m_layout, m_blocks->current(block), slot, &inode) &&
            !maker.reportStanding(number, inode, observer))
            return false;
    }
    return true;
}

Ranges ExtScanner::rangesToSweep() const
{
    if (m_context.request.isDeep())
        return m_free;
    if (m_former->isEmpty() && !m_indirect)
        return Ranges();
    const ExtSuperblock &super = m_layout.super();
    const qint64 step = super.blocksPerGroup * super.blockSize;
    Ranges starts;
    qint64 left = kQuickSweep;
    for (const Range &range : m_free) {
        // The first free bytes of a group count, not those of its first blocks.
        for (qint64 at = range.start; at < range.end() && left > 0;) {
            const qint64 end = qMin(range.end(), (at / step + 1) * step);
            const qint64 length = qMin(qMin(end - at, kQuickSweepOfGroup), left);
            starts.append({at, length});
            left -= length;
            at = end;
        }
    }
    return starts;
}

bool ExtScanner::sweepFreeSpace(ScanObserver &observer)
{
    const auto visit = [this](qint64 block, const QByteArray &bytes) {
        takeFreeBlock(block, bytes);
    };
    if (!m_layout.super().hasIncompatible(extfeature::kExtents))
        m_indirect = std::make_unique<IndirectFiles>(m_layout, m_free);
    return BlockSweep(m_layout).run(rangesToSweep(), visit, progress(observer, m_done));
}

void ExtScanner::takeFreeBlock(qint64 block, const QByteArray &bytes)
{
    DirectoryBlock parsed;
    if (parseDirectoryBlock(m_layout, bytes, &parsed)) {
        if (!m_former->isEmpty())
            m_former->takeBlock(block, parsed, bytes);
        const quint32 owner = m_names.addOwner({block, parsed.self, parsed.parent, parsed.seed});
        visitEntries(m_layout, bytes, [&](Entry entry) {
            entry.isRemnant = true;
            if (m_inodes.hasNumber(entry.number))
                m_names.add(owner, entry, kAnyTime);
        });
    } else if (m_indirect) {
        m_indirect->take(block, bytes);
    }
}

bool ExtScanner::reportFormer(ScanObserver &observer)
{
    if (!m_former->report(m_layout.super().madeMs, observer))
        return false;
    if (!m_indirect)
        return true;
    m_indirect->leaveOut(m_maps->takeTreeBlocks());
    QElapsedTimer clock;
    clock.start();
    const auto mayCheck = [this, &clock, &observer] {
        return (m_context.request.isDeep() || clock.elapsed() < kQuickChecksMs) &&
               observer.mayGoOn();
    };
    return m_indirect->report(mayCheck, [&observer](Finding &&finding) {
        return observer.mayGoOn() && observer.found(std::move(finding));
    });
}

bool ExtScanner::reportExisting(ScanObserver &observer)
{
    FindingMaker maker(*m_blocks, m_inodes, *m_maps, m_tree);
    const auto visit = [&](quint32 number, const Inode &inode, bool isInUse,
                           const QByteArray &block, quint32 slot) {
        const bool isFile = isInUse && inode.links > 0 && inode.isRegular() && inode.size > 0 &&
                            number != m_layout.super().journalInode && (number > 10 || number == 0);
        return !isFile || maker.reportExisting(number, inode, block, slot, observer);
    };
    return m_walk->visitInodes(false, visit, progress(observer, m_done));
}

} // namespace services::recoveryd::ext
