#include "recoveryd/btrfs/btrfsscanner.h"

#include "recoveryd/btrfs/findingmaker.h"

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

constexpr qint64 kMiB = 1024 * 1024;
/// Up to this size it is not worth choosing.
constexpr qint64 kSmallDevice = 1024 * kMiB;
/// Where new file systems put their first nodes, whatever stands there now.
constexpr qint64 kHead = 128 * kMiB;
/// Bytes of contents that a quick and a deep scan read to check them.
constexpr qint64 kQuickBudget = 1024 * kMiB;
constexpr qint64 kDeepBudget = 256 * 1024 * kMiB;
constexpr quint64 kNodeChunks = kMetadataChunk | kSystemChunk;
constexpr int kRounds = 4;

/// Passes on only files that nothing found later can change.
class ProvenOnly : public ScanObserver
{
public:
    explicit ProvenOnly(ScanObserver &observer)
        : m_observer(observer)
    {}
    bool mayGoOn() override { return m_observer.mayGoOn(); }
    void advanced(qint64 done) override { m_observer.advanced(done); }
    bool found(Finding &&finding) override
    {
        const bool isProven = finding.isMapComplete &&
                              finding.contentCheck == Finding::Check::Passed &&
                              finding.folderKnowledge == Finding::Folder::Full;
        return isProven ? m_observer.found(std::move(finding)) : mayGoOn();
    }

private:
    ScanObserver &m_observer;
};

} // namespace

BtrfsScanner::BtrfsScanner(const ScanContext &context)
    : m_context(context)
    , m_volume(*m_context.media)
    , m_isOpen(m_volume.open())
{}

QString BtrfsScanner::phaseText() const
{
    return m_isOpen ? QStringLiteral("正在读取 Btrfs 元数据")
                    : QStringLiteral("超级块已损坏，正在逐块查找 Btrfs 元数据");
}

qint64 BtrfsScanner::totalWork() const
{
    return totalLength(rangesToSweep(m_context.request.isDeep()));
}

bool BtrfsScanner::canChoose() const
{
    return m_isOpen && m_volume.areChunksComplete() && m_context.media->size() > kSmallDevice;
}

Ranges BtrfsScanner::rangesToSweep(bool isDeep) const
{
    const Ranges everything = {{0, m_context.media->size()}};
    if (!canChoose())
        return everything;
    Ranges ranges = m_volume.chunks().ranges(kNodeChunks, false);
    ranges.append({0, kHead});
    if (isDeep) {
        Ranges free;
        QString ignored;
        if (m_context.listsExisting || !btrfsFreeRanges(m_volume, &free, &ignored))
            return everything;
        ranges += free;
    }
    return intersected(everything, joinedRanges(ranges));
}

Ranges BtrfsScanner::nodeRanges() const
{
    Ranges ranges;
    for (const auto &remains : m_remains)
        ranges += remains->chunks().ranges(kNodeChunks, false);
    return joinedRanges(ranges);
}

bool BtrfsScanner::isLive(const NodeView &node)
{
    const auto leaf = std::lower_bound(
        m_liveLeaves.cbegin(), m_liveLeaves.cend(), node.address(),
        [](const NodeView::Pointer &known, quint64 address) { return known.address < address; });
    if (leaf == m_liveLeaves.cend() || leaf->address != node.address() ||
        leaf->generation != node.generation())
        return false;
    m_isMet[std::size_t(leaf - m_liveLeaves.cbegin())] = true;
    return true;
}

void BtrfsScanner::take(int format, qint64 offset, const NodeView &node)
{
    const bool isOwn = m_isOpen && format == 0;
    m_remains[std::size_t(format)]->add(offset, node, isOwn && isLive(node));
}

void BtrfsScanner::takeMissedLeaves()
{
    const TreeWalk walk(*m_context.media, m_volume.chunks(), m_volume.format());
    QByteArray bytes;
    for (std::size_t i = 0; i < m_liveLeaves.size(); ++i) {
        if (m_isMet[i] || !walk.read(m_liveLeaves[i], 0, &bytes))
            continue;
        const qint64 offset = m_volume.chunks().map(m_liveLeaves[i].address, 1).first().physical;
        m_remains.front()->add(offset, NodeView(bytes.constData(), bytes.size()), true);
    }
}

bool BtrfsScanner::sweep(bool isDeep, ScanObserver &observer)
{
    const NodeSweep *known = nullptr;
    NodeSweep sweep(*m_context.media, [&](int format, qint64 offset, const NodeView &node) {
        while (int(m_remains.size()) <= format)
            m_remains.push_back(
                std::make_unique<Remains>(known->formats().at(int(m_remains.size()))));
        take(format, offset, node);
    });
    known = &sweep;
    if (m_isOpen) {
        sweep.addFormat(m_volume.format());
        m_remains.push_back(std::make_unique<Remains>(m_volume.format()));
        m_remains.front()->chunks() = m_volume.chunks();
        m_remains.front()->setDevice(m_volume.superblock().deviceId);
    }
    if (!sweep.run(rangesToSweep(isDeep), observer))
        return false;
    // What was found may tell of further places.
    for (int round = 0; round < kRounds; ++round)
        if (!sweep.run(nodeRanges(), observer))
            return false;
    return true;
}

bool BtrfsScanner::report(ScanObserver &observer)
{
    const bool isDeep = m_context.request.isDeep();
    for (std::size_t i = 0; i < m_remains.size(); ++i) {
        m_remains[i]->finish();
        const bool isOwn = m_isOpen && i == 0;
        FindingMaker maker(*m_context.media, *m_remains[i], isDeep ? kDeepBudget : kQuickBudget);
        if (!maker.report(isOwn && m_context.listsExisting, observer))
            return false;
        m_remains[i].reset();
    }
    return true;
}

bool BtrfsScanner::pass(bool isDeep, ScanObserver &observer)
{
    m_remains.clear();
    m_isMet.assign(m_liveLeaves.size(), false);
    if (!sweep(isDeep, observer))
        return false;
    if (m_isOpen)
        takeMissedLeaves();
    return report(observer);
}

bool BtrfsScanner::scan(ScanObserver &observer, QString *error)
{
    if (m_isOpen && !m_volume.fileLeaves(&m_liveLeaves))
        *error = QStringLiteral("Btrfs 的部分目录树已损坏");
    const bool isDeep = m_context.request.isDeep();
    // The free space of a large volume takes long; most of what is found stands in the chunks of
    // nodes, and is told before.
    ProvenOnly early(observer);
    if (isDeep && canChoose() && !pass(false, early))
        return true;
    // A stop is no error.
    return pass(isDeep, observer) || true;
}

} // namespace services::recoveryd::btrfs
