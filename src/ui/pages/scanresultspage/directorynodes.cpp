#include "ui/pages/scanresultspage/directorynodes.h"

#include <QStringList>

namespace scanresults {

DirectoryNodes::DirectoryNodes(const QString &rootName)
{
    Node root;
    root.name = rootName;
    root.path = QStringLiteral("/");
    root.shown = true;
    root.known = true;
    nodes.append(root);
}

int DirectoryNodes::append(int parent, const QString &name, const QString &path)
{
    Node node;
    node.name = name;
    node.path = path;
    node.parent = parent;
    const int id = nodes.size();
    nodes.append(node);
    m_byPath.insert(path, id);
    Node &above = nodes[parent];
    above.fresh.append(id);
    // A node that gets its first children needs a branch sign, also while it is closed.
    if ((above.shown || above.children.isEmpty()) && !above.waiting) {
        above.waiting = true;
        waiting.append(parent);
    }
    return id;
}

int DirectoryNodes::childOf(int parent, const QString &name)
{
    const QString path =
        (parent == kRootNode ? QString() : nodes.at(parent).path) + QLatin1Char('/') + name;
    const int known = m_byPath.value(path, -1);
    return known >= 0 ? known : append(parent, name, path);
}

int DirectoryNodes::findOrCreateTreePath(const QString &path)
{
    const auto known = m_byText.constFind(path);
    if (known != m_byText.constEnd())
        return *known;
    int node = kRootNode;
    for (const QString &name : path.split(QLatin1Char('/'))) {
        if (!name.isEmpty())
            node = childOf(node, name);
    }
    m_byText.insert(path, node);
    return node;
}

void DirectoryNodes::addFiles(int node, int count)
{
    for (; node >= 0; node = nodes.at(node).parent)
        nodes[node].files += count;
}

bool DirectoryNodes::isBelow(int node, int ancestor) const
{
    // A parent is always made before its children.
    while (node > ancestor)
        node = nodes.at(node).parent;
    return node == ancestor;
}

std::vector<char> DirectoryNodes::nodesBelow(int ancestor) const
{
    std::vector<char> below;
    if (ancestor == kRootNode)
        return below;
    below.resize(size_t(nodes.size()), 0);
    for (int node = ancestor; node < nodes.size(); ++node)
        below[size_t(node)] = node == ancestor || below[size_t(nodes.at(node).parent)];
    return below;
}

int DirectoryNodes::nodeOfPath(const QString &path) const
{
    QString left = path;
    while (left.contains(QLatin1Char('/'))) {
        const auto known = m_byPath.constFind(left);
        if (known != m_byPath.constEnd())
            return *known;
        left.truncate(left.lastIndexOf(QLatin1Char('/')));
    }
    return kRootNode;
}

} // namespace scanresults
