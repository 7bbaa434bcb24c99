#include "recoveryd/btrfs/folderbook.h"

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

constexpr int kMaxDepth = 256;
constexpr int kMaxFolders = 2 * 1000 * 1000;
constexpr int kMaxVersions = 256; ///< Of one inode number.
constexpr std::size_t kMaxTimes = 1000 * 1000;
constexpr int kMaxOrigins = 16;

} // namespace

void FolderBook::addVersion(quint64 inode, const Version &version)
{
    auto versions = m_versions.find(inode);
    if (versions == m_versions.end()) {
        if (m_versions.size() >= kMaxFolders)
            return;
        versions = m_versions.insert(inode, {});
    }
    for (Version &known : *versions) {
        if (known.tree != version.tree || known.parent != version.parent ||
            known.name != version.name)
            continue;
        known.first = qMin(known.first, version.first);
        known.last = qMax(known.last, version.last);
        known.isEntry = known.isEntry && version.isEntry;
        return;
    }
    if (versions->size() < kMaxVersions)
        versions->append(version);
}

void FolderBook::addFolder(const Piece &piece)
{
    for (const Reference &name : piece.names)
        addVersion(piece.inode, {piece.tree, name.folder, name.name, piece.firstGeneration,
                                 piece.lastGeneration, false});
    if (!piece.hasFacts)
        return;
    QVector<Change> &changes = m_changes[piece.inode];
    const bool isKnown = std::any_of(changes.cbegin(), changes.cend(), [&](const Change &known) {
        return known.tree == piece.tree && known.generation == piece.facts.transaction;
    });
    if (!isKnown && changes.size() < kMaxVersions)
        changes.append({piece.tree, piece.facts.transaction, piece.facts.modifiedMs});
}

void FolderBook::addEntry(quint64 tree, quint64 parent, quint64 child, const QByteArray &name,
                          quint64 generation)
{
    addVersion(child, {tree, parent, name, generation, generation, true});
}

void FolderBook::addSubvolume(quint64 parent, quint64 folder, quint64 child, const QByteArray &name,
                              quint64 generation)
{
    if (m_subvolumes.size() >= kMaxFolders)
        return;
    Subvolume &known = m_subvolumes[child];
    if (known.name.isEmpty() || known.generation <= generation)
        known = {parent, folder, name, generation};
}

void FolderBook::addIdentity(quint64 tree, const QByteArray &id, const QByteArray &originId)
{
    if (m_trees.size() >= kMaxFolders)
        return;
    m_trees.insert(id, tree);
    if (originId.count('\0') != originId.size())
        m_originIds.insert(tree, originId);
}

void FolderBook::addTime(quint64 generation, qint64 ms)
{
    const auto known = m_times.find(generation);
    if (known != m_times.end())
        known->second = qMax(known->second, ms);
    else if (m_times.size() < kMaxTimes)
        m_times.emplace(generation, ms);
}

quint64 FolderBook::originOf(quint64 tree) const
{
    const auto id = m_originIds.constFind(tree);
    return id == m_originIds.constEnd() ? 0 : m_trees.value(*id);
}

const FolderBook::Version *FolderBook::findIn(quint64 tree, quint64 inode, quint64 generation) const
{
    const auto versions = m_versions.constFind(inode);
    const Version *best = nullptr;
    if (versions == m_versions.constEnd())
        return nullptr;
    // The last name that it had up to then; else the next one. Its own item rather than an entry.
    const auto rank = [generation](const Version &version) {
        const bool isBefore = version.first <= generation;
        return std::make_tuple(isBefore, isBefore ? version.first : ~version.first,
                               !version.isEntry);
    };
    for (const Version &version : *versions)
        if (version.tree == tree && (!best || rank(version) > rank(*best)))
            best = &version;
    return best;
}

/// A snapshot shares the leaves of what it was made of.
const FolderBook::Version *FolderBook::find(quint64 tree, quint64 inode, quint64 generation) const
{
    const Version *found = findIn(tree, inode, generation);
    for (int i = 0; !found && i < kMaxOrigins && (tree = originOf(tree)) != 0; ++i)
        found = findIn(tree, inode, generation);
    return found;
}

FolderPath FolderBook::pathOf(quint64 tree, quint64 inode, quint64 generation) const
{
    FolderPath path;
    const auto prepend = [&path](const QByteArray &name) {
        path.folder = path.folder.isEmpty() ? name : name + '/' + path.folder;
    };
    for (int depth = 0; depth < kMaxDepth; ++depth) {
        if (inode == kRootFolder && tree == kMainTree) {
            path.knowledge = Finding::Folder::Full;
            return path;
        }
        if (inode == kRootFolder) {
            const auto subvolume = m_subvolumes.constFind(tree);
            if (subvolume == m_subvolumes.constEnd())
                break;
            prepend(subvolume->name);
            tree = subvolume->parent;
            inode = subvolume->folder;
            continue;
        }
        const Version *const version = find(tree, inode, generation);
        if (!version)
            break;
        prepend(version->name);
        inode = version->parent;
    }
    path.knowledge = path.folder.isEmpty() ? Finding::Folder::Unknown : Finding::Folder::Partial;
    return path;
}

qint64 FolderBook::deletionTime(quint64 tree, quint64 folder, quint64 generation) const
{
    const Change *next = nullptr;
    const auto changes = m_changes.constFind(folder);
    if (changes != m_changes.constEnd())
        for (const Change &change : *changes)
            if (change.tree == tree && change.generation > generation &&
                (!next || change.generation < next->generation))
                next = &change;
    if (next)
        return next->ms;
    const auto later = m_times.upper_bound(generation);
    return later == m_times.end() ? Finding::kUnknownTime : later->second;
}

} // namespace services::recoveryd::btrfs
