#include "ui/pages/diskanalyzerpage/directorytree.h"

#include "core/pathutil.h"

#include <QDir>

namespace diskanalyzer {

namespace {

void fill(DirectoryNode *node, const QVariantMap &map)
{
    node->totalSize = map.value(QStringLiteral("totalSize")).toLongLong();
    node->fileSize = map.value(QStringLiteral("fileSize")).toLongLong();
    const QVariantList children = map.value(QStringLiteral("children")).toList();
    node->children.reserve(size_t(children.size()));
    for (const QVariant &value : children) {
        const QVariantMap childMap = value.toMap();
        auto child = std::make_unique<DirectoryNode>();
        child->name = childMap.value(QStringLiteral("name")).toString();
        child->parent = node;
        child->row = int(node->children.size());
        fill(child.get(), childMap);
        node->children.push_back(std::move(child));
    }
}

} // namespace

DirectoryTree directoryTreeFromMap(const QVariantMap &root, const QString &rootPath)
{
    auto tree = std::make_shared<DirectoryNode>();
    tree->name = QDir::cleanPath(rootPath);
    fill(tree.get(), root);
    return tree;
}

QString pathOf(const DirectoryNode *node)
{
    QStringList names;
    for (const DirectoryNode *at = node; at; at = at->parent)
        names.prepend(at->name);
    // The root may be "/" itself.
    return QDir::cleanPath(names.join(QLatin1Char('/')));
}

DirectoryNode *directoryOfFile(const DirectoryTree &tree, const QString &filePath)
{
    if (!tree || !core::isInside(filePath, tree->name))
        return nullptr;
    QStringList names = QDir(tree->name).relativeFilePath(filePath).split(QLatin1Char('/'));
    names.removeLast(); // The file.
    DirectoryNode *node = tree.get();
    for (const QString &name : names) {
        DirectoryNode *next = nullptr;
        for (const auto &child : node->children) {
            if (child->name == name)
                next = child.get();
        }
        if (!next)
            return nullptr;
        node = next;
    }
    return node;
}

void subtractFile(DirectoryNode *directory, qint64 size)
{
    directory->fileSize = qMax<qint64>(0, directory->fileSize - size);
    for (DirectoryNode *node = directory; node; node = node->parent)
        node->totalSize = qMax<qint64>(0, node->totalSize - size);
}

} // namespace diskanalyzer
