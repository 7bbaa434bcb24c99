#include "recoveryd/ntfs/namebook.h"

namespace services::recoveryd::ntfs {

namespace {

constexpr int kMaxDeletions = 1000 * 1000;
constexpr int kMaxRemains = 500 * 1000;
constexpr int kMaxRecycleInfos = 200 * 1000;
constexpr int kMaxRecycleInfo = 66 * 1024; ///< Bytes.

/// The references under which directories and journals knew the file of a record.
QVector<quint64> referencesTo(const Record &record)
{
    QVector<quint64> references = {makeReference(record.number, record.sequence)};
    if (!record.isInUse())
        references.prepend(referenceBeforeDeletion(record.number, record.sequence));
    return references;
}

} // namespace

bool isTemporaryName(const QByteArray &name)
{
    return name.startsWith(".ntfs-3g-") || name.startsWith(".fuse_hidden");
}

void NameBook::addDirectory(const Record &record, const FileFacts &facts)
{
    const FileName *name = facts.bestName();
    if (name)
        m_folders.addRecord(record.number, record.sequence, record.isInUse(), *name,
                            qMax(facts.changedTime, facts.createdTime));
}

void NameBook::addRemains(quint64 reference, const FileName &name, quint64 time)
{
    if (name.nameSpace == FileName::Dos || isTemporaryName(name.name))
        return;
    if (name.isDirectory()) {
        m_folders.add(reference, name, FolderTree::Trust::Remains, time);
        return;
    }
    if (!m_asked.contains(reference) || m_remains.size() >= kMaxRemains)
        return;
    Remains &remains = m_remains[reference];
    if (remains.name.name.isEmpty() || remains.time <= time)
        remains = {name, time};
}

void NameBook::addDeletion(quint64 reference, qint64 deletedMs)
{
    if (m_deletions.size() < kMaxDeletions)
        m_deletions.insert(reference, deletedMs);
}

void NameBook::addRecycleInfo(quint64 parent, const QByteArray &name, const QByteArray &contents)
{
    if (m_recycleInfos.size() < kMaxRecycleInfos && contents.size() <= kMaxRecycleInfo)
        m_recycleInfos.append({parent, name, contents});
}

void NameBook::askFor(const Record &record)
{
    for (quint64 reference : referencesTo(record))
        m_asked.insert(reference);
}

void NameBook::finishRecycleBin()
{
    for (const RecycleInfo &info : qAsConst(m_recycleInfos))
        m_recycleBin.addInfo(m_folders.pathOf(info.parent).folder, info.name, info.contents);
    m_recycleInfos.clear();
    m_isRecycleBinFinished = true;
}

const FileName *NameBook::remainsOf(const Record &record) const
{
    for (quint64 reference : referencesTo(record)) {
        const auto remains = m_remains.constFind(reference);
        if (remains != m_remains.constEnd())
            return &remains->name;
    }
    return nullptr;
}

/// Of several hard links one whose path is known.
const FileName *NameBook::bestNameOf(const FileFacts &facts)
{
    const FileName *best = facts.bestName();
    if (facts.names.size() < 2 || best->nameSpace == FileName::Dos)
        return best;
    for (const FileName &name : facts.names)
        if (name.nameSpace != FileName::Dos &&
            m_folders.pathOf(name.parent).knowledge == Finding::Folder::Full)
            return &name;
    return best;
}

Place NameBook::placeOf(const Record &record, const FileFacts &facts)
{
    Place place;
    const FileName *name = bestNameOf(facts);
    bool isSettled = true;
    if (!name || isTemporaryName(name->name)) {
        const FileName *remains = remainsOf(record);
        isSettled = remains != nullptr;
        name = remains ? remains : name;
    }
    if (!name)
        return place;
    const FolderPath path = m_folders.pathOf(name->parent);
    place.isSystem = path.isSystem;
    place.finding.name = name->name;
    place.finding.folder = path.folder;
    place.finding.folderKnowledge = path.knowledge;
    isSettled = isSettled && path.knowledge == Finding::Folder::Full;
    for (quint64 reference : referencesTo(record)) {
        const auto deletion = m_deletions.constFind(reference);
        if (deletion == m_deletions.constEnd())
            continue;
        place.finding.deletedMs = *deletion;
        break;
    }
    if (RecycleBin::isInside(path.folder + '/')) {
        isSettled = isSettled && m_isRecycleBinFinished;
        if (m_recycleBin.restore(&place.finding.folder, &place.finding.name,
                                 &place.finding.deletedMs))
            place.finding.folderKnowledge = Finding::Folder::Full;
    }
    place.isSettled = isSettled;
    return place;
}

} // namespace services::recoveryd::ntfs
