#include "analyzer/directorytree.h"

#include "analyzer/saturating.h"
#include "core/filename.h"

#include <QFile>
#include <QVariantList>

#include <algorithm>
#include <climits>
#include <vector>

namespace {

/// Nodes between two looks at the stop.
constexpr std::size_t kNodesPerLook = 256;

QString shownName(const DirNode &node)
{
    return QFile::decodeName(QByteArray::fromRawData(node.name, int(std::strlen(node.name))));
}

bool isAscii(const char *name)
{
    while (*name != '\0' && (*name & 0x80) == 0)
        ++name;
    return *name == '\0';
}

} // namespace

DirectoryTree::DirectoryTree(const QString &rootPath)
    : m_rootPath(QFile::encodeName(rootPath))
    , m_nodes(1)
{
    m_nodes.front().pathLength = m_rootPath.size();
}

void DirectoryTree::addChild(DirNode *parent, const char *name)
{
    DirNode node;
    node.parent = parent;
    node.name = m_names.store(name);
    node.pathLength = parent->pathLength + 1 + int(std::strlen(name));
    node.isNamable = isListable(parent, name);
    if (parent->childCount == 0)
        parent->firstChild = m_nodes.size();
    ++parent->childCount;
    m_nodes.push_back(node);
}

void DirectoryTree::accumulateToDir(DirNode *dir, qint64 size)
{
    dir->fileSize = saturatingSum(dir->fileSize, size);
    dir->holdsFiles = true;
}

QByteArray DirectoryTree::path(const DirNode *dir) const
{
    return dir->parent ? path(dir->parent, dir->name) : m_rootPath;
}

QByteArray DirectoryTree::path(const DirNode *dir, const char *name) const
{
    QByteArray bytes = path(dir);
    if (!bytes.endsWith('/'))
        bytes += '/';
    return bytes += name;
}

bool DirectoryTree::isListable(const DirNode *dir, const char *name)
{
    return dir->isNamable && dir->pathLength + 1 + int(std::strlen(name)) < PATH_MAX &&
           (isAscii(name) || !core::decodedFileName(name).isEmpty());
}

QString DirectoryTree::listedPath(const DirNode *dir, const char *name) const
{
    return QFile::decodeName(path(dir, name));
}

void DirectoryTree::sumUp()
{
    for (std::size_t i = m_nodes.size(); i-- > 0;) {
        DirNode &node = m_nodes[i];
        node.totalSize = saturatingSum(node.totalSize, node.fileSize);
        if (!node.parent)
            continue;
        node.parent->totalSize = saturatingSum(node.parent->totalSize, node.totalSize);
        node.parent->holdsFiles |= node.holdsFiles;
    }
}

/// From the last node to the root: a loop, because trees may be deeper than a stack of calls.
QVariantMap DirectoryTree::toVariant(const std::function<bool()> &shouldStop) const
{
    struct Child
    {
        qint64 totalSize;
        QString name;
        std::size_t index;
    };
    const QVariant noChildren = QVariantList();
    std::vector<QVariant> maps(m_nodes.size());
    std::vector<Child> children;
    for (std::size_t i = m_nodes.size(); i-- > 0;) {
        if (i % kNodesPerLook == 0 && shouldStop())
            return QVariantMap();
        const DirNode &node = m_nodes[i];
        if (!node.holdsFiles && node.parent)
            continue;
        children.clear();
        for (std::size_t c = node.firstChild; c < node.firstChild + node.childCount; ++c)
            if (m_nodes[c].holdsFiles)
                children.push_back({m_nodes[c].totalSize, shownName(m_nodes[c]), c});
        std::sort(children.begin(), children.end(), [](const Child &a, const Child &b) {
            return a.totalSize != b.totalSize ? a.totalSize > b.totalSize : a.name < b.name;
        });
        QVariantList list;
        list.reserve(int(children.size()));
        for (const Child &child : children)
            list.append(std::move(maps[child.index]));
        maps[i] =
            dirNodeToVariant(node, node.parent ? shownName(node) : QFile::decodeName(m_rootPath),
                             list.isEmpty() ? noChildren : QVariant(list));
    }
    return maps.front().toMap();
}

QVariantMap DirectoryTree::dirNodeToVariant(const DirNode &node, const QString &name,
                                            const QVariant &children) const
{
    QVariantMap map;
    map.insert(QStringLiteral("name"), name);
    map.insert(QStringLiteral("totalSize"), node.totalSize);
    map.insert(QStringLiteral("fileSize"), node.fileSize);
    map.insert(QStringLiteral("children"), children);
    return map;
}
