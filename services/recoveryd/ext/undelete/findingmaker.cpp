#include "recoveryd/ext/undelete/findingmaker.h"

namespace services::recoveryd::ext {

namespace {

constexpr int kMaxVersions = 16; ///< Of one file.

} // namespace

bool FindingMaker::isCovered(const std::vector<Kept> &kept, const BlockMap &map, qint64 size) const
{
    for (const Kept &newer : kept)
        if (newer.size >= size && newer.map.covers(map))
            return true;
    return false;
}

FindingMaker::Outcome FindingMaker::reportLife(const Life &life, bool onlyFull,
                                               ScanObserver &observer)
{
    if (life.type != 1 || life.states < 0)
        return Outcome::Done;
    const quint32 seed = m_blocks.layout().inodeSeed(life.number, life.generation);
    std::vector<Kept> kept;
    QVector<Finding> findings;
    bool wasLinked = life.isCurrent;
    const InodeState *newer = nullptr;
    int links = 1;
    for (int index = life.states; index >= 0 && findings.size() < kMaxVersions;
         index = m_inodes.state(index).next) {
        const InodeState &state = m_inodes.state(index);
        const bool isNow = state.last == kNow;
        const Order order = isNow && !life.isCurrent ? kNow - 1 : state.last;
        const BlockMap map = m_maps.read(state.inode, order, seed);
        const bool isInline = state.inode.is(Inode::InlineData);
        const bool hasContent = isInline || !map.runs.empty();
        if (isNow) {
            kept.push_back({map, state.inode.size});
        } else if (hasContent && (isInline ? findings.isEmpty() && !life.isCurrent
                                           : !isCovered(kept, map, state.inode.size))) {
            Finding finding = describe(life, state, map);
            finding.deletedMs =
                deletedMs(life, state, findings.isEmpty() && !life.isCurrent, newer);
            links = qMax(links, int(state.inode.links));
            findings.append(finding);
            kept.push_back({map, state.inode.size});
        }
        wasLinked = wasLinked || state.inode.links > 0;
        newer = &state;
    }
    // A file that never had a name was the temporary one of some program.
    if (findings.isEmpty() || (!wasLinked && life.last == kAnyTime))
        return Outcome::Done;
    const QVector<Place> places = m_tree.placesOf(questionOf(life, links));
    if (onlyFull && places.first().knowledge != Finding::Folder::Full)
        return Outcome::Later;
    for (const Place &place : places)
        for (Finding finding : findings) {
            finding.name = place.name;
            finding.folder = place.folder;
            finding.folderKnowledge = place.knowledge;
            if (!observer.found(std::move(finding)))
                return Outcome::Ended;
        }
    return Outcome::Done;
}

Finding FindingMaker::describe(const Life &life, const InodeState &state, const BlockMap &map) const
{
    Finding finding;
    finding.source = FindingSource::Journal;
    finding.modifiedMs = state.inode.modifiedMs;
    finding.recency = state.last;
    finding.isMapComplete = map.isComplete;
    if (state.inode.is(Inode::InlineData)) {
        finding.content.inlineBytes = inlineData(state);
        finding.content.size = state.inode.size;
        finding.isMapComplete = finding.content.inlineBytes.size() == state.inode.size;
    } else {
        const Order since = qMax(life.from, Order(1));
        finding.content = contentOf(m_blocks, map, state.inode.size, since, state.last);
        finding.takenBytes = takenBytes(map, state.last);
    }
    // Ciphertext is of no use without the owner's key.
    if (state.inode.is(Inode::Encrypted))
        finding.contentCheck = Finding::Check::Failed;
    return finding;
}

/// Blocks that a directory or a map took over since.
qint64 FindingMaker::takenBytes(const BlockMap &map, Order order) const
{
    qint64 blocks = 0;
    if (m_blocks.journal())
        for (const Run &run : map.runs)
            blocks += m_blocks.journal()->history().changedSince(run.block, run.count, order);
    return blocks * m_blocks.layout().blockSize();
}

qint64 FindingMaker::deletedMs(const Life &life, const InodeState &state, bool isNewest,
                               const InodeState *newer) const
{
    Q_UNUSED(state)
    if (isNewest && life.deletionTime != 0)
        return qint64(life.deletionTime) * 1000;
    const Order order = isNewest ? life.goneAt : newer ? newer->first : kAnyTime;
    const qint64 seconds = m_blocks.journal() ? m_blocks.journal()->commitTime(order) : 0;
    return seconds > 0 ? seconds * 1000 : Finding::kUnknownTime;
}

QByteArray FindingMaker::inlineData(const InodeState &state) const
{
    return m_blocks.journal()
               ? inlineDataOf(m_blocks.layout(), m_blocks.journal()->read(state.at), state.slot)
               : QByteArray();
}

bool FindingMaker::reportExisting(quint32 number, const Inode &inode, const QByteArray &bytes,
                                  quint32 slot, ScanObserver &observer)
{
    Finding finding;
    finding.isDeleted = false;
    finding.modifiedMs = inode.modifiedMs;
    finding.recency = kNow;
    const BlockMap map =
        m_maps.read(inode, kNow, m_blocks.layout().inodeSeed(number, inode.generation));
    finding.isMapComplete = map.isComplete;
    if (inode.is(Inode::InlineData)) {
        finding.content.inlineBytes = inlineDataOf(m_blocks.layout(), bytes, slot);
        finding.content.size = inode.size;
        finding.isMapComplete = finding.content.inlineBytes.size() == inode.size;
    } else {
        finding.content = contentOf(m_blocks, map, inode.size, kSequenceBase, kNow);
    }
    if (inode.is(Inode::Encrypted))
        finding.contentCheck = Finding::Check::Failed;
    NameQuestion question;
    question.number = number;
    question.type = inode.entryType();
    question.links = inode.links;
    question.isCurrent = true;
    if (const Life *life = m_inodes.lifeAt(number, kNow))
        if (life->isCurrent)
            question.from = life->from;
    return m_tree.reportAt(m_tree.placesOf(question), finding, observer);
}

bool FindingMaker::reportStanding(quint32 number, const Inode &inode, ScanObserver &observer)
{
    const BlockMap map =
        m_maps.read(inode, kNow, m_blocks.layout().inodeSeed(number, inode.generation));
    if (map.runs.empty())
        return true;
    Finding finding;
    finding.modifiedMs = inode.modifiedMs;
    finding.deletedMs = qint64(inode.deletionTime) * 1000;
    finding.recency = 1; // older than all that the journal tells of
    finding.isMapComplete = map.isComplete;
    finding.content = contentOf(m_blocks, map, inode.size, kSequenceBase, kNow);
    if (inode.is(Inode::Encrypted))
        finding.contentCheck = Finding::Check::Failed;
    NameQuestion question;
    question.number = number;
    question.type = inode.entryType();
    return m_tree.reportAt(m_tree.placesOf(question), finding, observer);
}

} // namespace services::recoveryd::ext
