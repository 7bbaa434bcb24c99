#include "recoveryd/ntfs/foldertree.h"

#include "recoveryd/ntfs/ntfsvolume.h"

namespace services::recoveryd::ntfs {

namespace {

constexpr int kMaxDepth = 256;
constexpr int kMaxNodes = 1000 * 1000;
constexpr int kMaxPaths = 100 * 1000;

} // namespace

quint64 referenceBeforeDeletion(quint64 number, quint16 sequence)
{
    // 0 is left out when the sequence wraps.
    return makeReference(number, sequence <= 1 ? quint16(0xFFFF) : quint16(sequence - 1));
}

void FolderTree::add(quint64 reference, const FileName &name, Trust trust, quint64 time)
{
    const auto known = m_nodes.find(reference);
    if (known == m_nodes.end()) {
        if (m_nodes.size() >= kMaxNodes)
            return;
    } else if (known->trust > trust || (known->trust == trust && known->time > time)) {
        return;
    }
    m_nodes.insert(reference, {name.parent, name.name, time, trust});
    m_paths.clear();
}

void FolderTree::addRecord(quint64 number, quint16 sequence, bool isInUse, const FileName &name,
                           quint64 time)
{
    const quint64 reference = makeReference(number, sequence);
    if (!isInUse)
        add(referenceBeforeDeletion(number, sequence), name, Trust::Record, time);
    // Some drivers leave the sequence as it was.
    add(reference, name, isInUse ? Trust::Record : Trust::Remains, time);
}

const FolderTree::Node *FolderTree::find(quint64 reference)
{
    auto node = m_nodes.constFind(reference);
    const quint64 number = numberOf(reference);
    if (node == m_nodes.constEnd() && m_loader && !m_asked.contains(number)) {
        m_asked.insert(number);
        m_loader(number);
        node = m_nodes.constFind(reference);
    }
    return node == m_nodes.constEnd() ? nullptr : &*node;
}

FolderPath FolderTree::pathOf(quint64 reference)
{
    const auto known = m_paths.constFind(reference);
    if (known != m_paths.constEnd())
        return *known;
    FolderPath path;
    quint64 at = reference;
    for (int depth = 0; depth < kMaxDepth; ++depth) {
        if (numberOf(at) == kRootRecord) {
            path.knowledge = Finding::Folder::Full;
            break;
        }
        if (numberOf(at) == kExtendRecord)
            path.isSystem = true;
        const Node *node = find(at);
        if (!node)
            break;
        path.folder = path.folder.isEmpty() ? node->name : node->name + '/' + path.folder;
        at = node->parent;
    }
    if (path.knowledge != Finding::Folder::Full && !path.folder.isEmpty())
        path.knowledge = Finding::Folder::Partial;
    if (m_paths.size() >= kMaxPaths)
        m_paths.clear();
    m_paths.insert(reference, path);
    return path;
}

} // namespace services::recoveryd::ntfs
