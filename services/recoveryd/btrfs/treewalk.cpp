#include "recoveryd/btrfs/treewalk.h"

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

constexpr std::size_t kMaxPointers = 64 * 1000 * 1000;

void sortUnique(std::vector<TreeWalk::Pointer> *pointers)
{
    std::sort(pointers->begin(), pointers->end(),
              [](const auto &a, const auto &b) { return a.address < b.address; });
    pointers->erase(
        std::unique(pointers->begin(), pointers->end(),
                    [](const auto &a, const auto &b) { return a.address == b.address; }),
        pointers->end());
}

} // namespace

bool TreeWalk::read(const Pointer &at, int level, QByteArray *node) const
{
    const int copies = m_chunks.copies(at.address);
    for (int copy = 0; copy < qMax(1, copies); ++copy) {
        node->resize(m_format.nodeSize);
        qint64 filled = 0;
        bool isHere = true;
        for (const ChunkMap::Part &part : m_chunks.map(at.address, m_format.nodeSize, copy)) {
            isHere = isHere && part.physical >= 0;
            if (isHere)
                m_media.read(part.physical, node->data() + filled, part.length);
            filled += part.length;
        }
        if (!isHere || !isNode(node->constData(), m_format))
            continue;
        const NodeView view(node->constData(), m_format.nodeSize);
        if (view.address() == at.address && view.level() == level &&
            (at.generation == 0 || view.generation() == at.generation))
            return true;
    }
    return false;
}

bool TreeWalk::descend(const TreePointer &root, std::vector<Pointer> *leaves)
{
    bool isComplete = root.level <= kMaxLevel;
    std::vector<Pointer> pointers = {{root.address, root.generation}};
    std::vector<Pointer> below;
    QByteArray bytes;
    for (int level = qMin(root.level, kMaxLevel); level > 0; --level) {
        below.clear();
        sortUnique(&pointers);
        std::vector<quint64> visited;
        for (const Pointer &pointer : pointers) {
            if (std::binary_search(m_visited.begin(), m_visited.end(), pointer.address))
                continue;
            if (!read(pointer, level, &bytes)) {
                isComplete = false;
                continue;
            }
            visited.push_back(pointer.address);
            const NodeView node(bytes.constData(), bytes.size());
            for (int i = 0; i < node.count() && below.size() < kMaxPointers; ++i)
                below.push_back(node.pointer(i));
        }
        const auto middle = std::ptrdiff_t(m_visited.size());
        m_visited.insert(m_visited.end(), visited.begin(), visited.end());
        std::inplace_merge(m_visited.begin(), m_visited.begin() + middle, m_visited.end());
        pointers.swap(below);
    }
    sortUnique(&pointers);
    leaves->insert(leaves->end(), pointers.begin(), pointers.end());
    return isComplete;
}

bool TreeWalk::leafPointers(const TreePointer &root, std::vector<Pointer> *pointers)
{
    return descend(root, pointers);
}

bool TreeWalk::leaves(const TreePointer &root, const std::function<bool(const NodeView &)> &visit)
{
    std::vector<Pointer> pointers;
    bool isComplete = descend(root, &pointers);
    QByteArray bytes;
    for (const Pointer &pointer : pointers) {
        if (!read(pointer, 0, &bytes))
            isComplete = false;
        else if (!visit(NodeView(bytes.constData(), bytes.size())))
            return false;
    }
    return isComplete;
}

} // namespace services::recoveryd::btrfs
