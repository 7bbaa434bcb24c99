#include "ui/pages/diskanalyzerpage/directorytree.h"

#include "core/pathutil.h"

#include <QDir>
#include <QHash>

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

/// Bytes removed from a directory and from those below it, by their names.
struct RemovedBytes
{
    qint64 own = 0;
    QHash<QString, std::shared_ptr<RemovedBytes>> below;

    bool isEmpty() const { return own == 0 && below.isEmpty(); }

    /// `path` is relative to this directory.
    void add(const QString &path, qint64 size)
    {
        RemovedBytes *at = this;
        int begin = 0;
        for (int end = path.indexOf(QLatin1Char('/')); end >= 0;
             end = path.indexOf(QLatin1Char('/'), begin)) {
            std::shared_ptr<RemovedBytes> &next = at->below[path.mid(begin, end - begin)];
            if (!next)
                next = std::make_shared<RemovedBytes>();
            at = next.get();
            begin = end + 1;
        }
        at->own += size;
    }
};

/// Returns what the directory has lost with all that lies below it. Looks at each child once, and
/// only at children of directories on the way to a removed file.
qint64 subtract(DirectoryNode *node, const RemovedBytes &removed, Removal *removal)
{
    qint64 bytes = qMin(removed.own, node->fileSize);
    node->fileSize -= bytes;
    int left = removed.below.size();
    for (auto child = node->children.begin(); left > 0 && child != node->children.end(); ++child) {
        ++removal->nodesVisited;
        const auto found = removed.below.constFind((*child)->name);
        if (found == removed.below.constEnd())
            continue;
        --left;
        bytes += subtract(child->get(), **found, removal);
    }
    if (bytes > 0 && !node->children.empty())
        removal->changedLevels.append(node);
    node->totalSize = qMax<qint64>(0, node->totalSize - bytes);
    return bytes;
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

Removal subtractFiles(const DirectoryTree &tree, const QVector<RemovedFile> &files)
{
    Removal removal;
    if (!tree)
        return removal;
    RemovedBytes root;
    for (const RemovedFile &file : files) {
        if (!core::isInside(file.path, tree->name))
            continue;
        const int skipped = tree->name.endsWith(QLatin1Char('/')) ? 0 : 1;
        root.add(file.path.mid(tree->name.size() + skipped), file.size);
    }
    if (!root.isEmpty())
        subtract(tree.get(), root, &removal);
    return removal;
}

} // namespace diskanalyzer
