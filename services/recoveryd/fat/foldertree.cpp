#include "recoveryd/fat/foldertree.h"

namespace services::recoveryd::fat {

namespace {

constexpr int kMaxDepth = 256;
constexpr std::size_t kMaxNodes = 1000 * 1000;

} // namespace

int FolderTree::add()
{
    if (m_nodes.size() >= kMaxNodes)
        return kNone;
    m_nodes.emplace_back();
    return int(m_nodes.size()) - 1;
}

void FolderTree::place(int folder, int parent, const QByteArray &name)
{
    if (folder == kRoot || folder == parent)
        return;
    m_nodes[std::size_t(folder)] = {parent, name};
    m_lastFolder = kNone;
}

FolderPath FolderTree::pathOf(int folder) const
{
    if (folder == m_lastFolder && folder != kNone)
        return m_lastPath;
    FolderPath path;
    int at = folder;
    for (int depth = 0; depth < kMaxDepth && at != kNone; ++depth) {
        if (at == kRoot) {
            path.knowledge = Finding::Folder::Full;
            break;
        }
        const Node &node = m_nodes[std::size_t(at)];
        if (!node.name.isEmpty())
            path.folder = path.folder.isEmpty() ? node.name : node.name + '/' + path.folder;
        at = node.parent;
    }
    if (path.knowledge != Finding::Folder::Full && !path.folder.isEmpty())
        path.knowledge = Finding::Folder::Partial;
    m_lastFolder = folder;
    m_lastPath = path;
    return path;
}

} // namespace services::recoveryd::fat
