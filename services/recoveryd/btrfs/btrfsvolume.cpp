#include "recoveryd/btrfs/btrfsvolume.h"

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

// Fields of a root item.
constexpr int kRootGeneration = 160;
constexpr int kRootAddress = 176;
constexpr int kRootReferences = 216;
constexpr int kRootLevel = 238;
constexpr int kMinRootItemSize = 239;

TreePointer rootAt(const ItemView &item)
{
    return {le64(item.data + kRootAddress), le64(item.data + kRootGeneration),
            quint8(item.data[kRootLevel])};
}

} // namespace

bool BtrfsVolume::open()
{
    if (!readSuperblock(m_media, &m_super))
        return false;
    m_chunks.setDevice(m_super.deviceId);
    m_chunks.addAll(m_super.systemChunks);
    readChunks();
    m_areRootsCurrent = readRoots(m_super.rootTree);
    for (int i = 0; i < m_super.olderRoots.size() && m_roots.isEmpty(); ++i)
        if (!readRoots(m_super.olderRoots.at(i)))
            m_roots.clear();
    return true;
}

void BtrfsVolume::readChunks()
{
    const auto read = [this](const TreePointer &root) {
        TreeWalk walk(m_media, m_chunks, m_super.format);
        return walk.leaves(root, [this](const NodeView &leaf) {
            for (int i = 0; i < leaf.count(); ++i) {
                const ItemView item = leaf.item(i);
                if (item.key.type == kChunkItem)
                    m_chunks.add(item.key.offset, item.data, item.size);
            }
            return true;
        });
    };
    m_areChunksComplete = read(m_super.chunkTree);
    for (int i = 0; i < m_super.olderChunks.size() && !m_areChunksComplete; ++i)
        m_areChunksComplete = read(m_super.olderChunks.at(i));
}

bool BtrfsVolume::readRoots(const TreePointer &root)
{
    TreeWalk walk(m_media, m_chunks, m_super.format);
    return walk.leaves(root, [this](const NodeView &leaf) {
        for (int i = 0; i < leaf.count(); ++i) {
            const ItemView item = leaf.item(i);
            // A tree without references is being deleted.
            if (item.key.type == kRootItem && item.size >= kMinRootItemSize &&
                le32(item.data + kRootReferences) > 0)
                m_roots.insert(item.key.id, rootAt(item));
        }
        return true;
    });
}

/// After a crash, what was synchronised since the last transaction is in trees of its own.
QVector<TreePointer> BtrfsVolume::logRoots(TreeWalk &walk) const
{
    QVector<TreePointer> roots;
    if (m_super.logTree.address == 0 || !m_areRootsCurrent)
        return roots;
    const bool isComplete = walk.leaves(m_super.logTree, [&roots](const NodeView &leaf) {
        for (int i = 0; i < leaf.count(); ++i)
            if (leaf.item(i).key.type == kRootItem && leaf.item(i).size >= kMinRootItemSize)
                roots.append(rootAt(leaf.item(i)));
        return true;
    });
    return isComplete ? roots : QVector<TreePointer>();
}

bool BtrfsVolume::fileLeaves(std::vector<NodeView::Pointer> *pointers) const
{
    TreeWalk walk(m_media, m_chunks, m_super.format);
    bool isComplete = m_roots.contains(kMainTree);
    for (auto it = m_roots.cbegin(); it != m_roots.cend(); ++it)
        if (isFileTree(it.key()))
            isComplete = walk.leafPointers(*it, pointers) && isComplete;
    for (const TreePointer &root : logRoots(walk))
        isComplete = walk.leafPointers(root, pointers) && isComplete;
    std::sort(pointers->begin(), pointers->end(),
              [](const auto &a, const auto &b) { return a.address < b.address; });
    return isComplete;
}

} // namespace services::recoveryd::btrfs
