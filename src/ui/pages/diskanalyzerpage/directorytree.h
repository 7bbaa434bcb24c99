#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <QVector>

#include <memory>
#include <vector>

namespace diskanalyzer {

/// A directory and what lies below it. Sizes in bytes. Owns its children, which stand in the order
/// of their sizes as scanned, largest first.
struct DirectoryNode
{
    QString name;
    qint64 totalSize = 0; ///< With all subdirectories.
    qint64 fileSize = 0;  ///< Files directly in it.
    DirectoryNode *parent = nullptr;
    int row = 0; ///< Place among the parent's children.
    std::vector<std::unique_ptr<DirectoryNode>> children;
};

/// The root of a scan; its name is the path of the directory that was scanned. Shared so that the
/// freeing of a large tree can be left to another thread.
using DirectoryTree = std::shared_ptr<DirectoryNode>;

/// From the map that the worker sends. Takes long for a large tree: any thread but the GUI's.
DirectoryTree directoryTreeFromMap(const QVariantMap &root, const QString &rootPath);

QString pathOf(const DirectoryNode *node);

struct RemovedFile
{
    QString path;
    qint64 size; ///< Bytes.
};

struct Removal
{
    QVector<DirectoryNode *> changedLevels; ///< Whose children's sizes or shares changed.
    int nodesVisited = 0; ///< Children compared with names: the cost of the removal.
};

/// Takes the sizes of removed files off their directories and all above, in one pass, whatever the
/// number of files and siblings. Files outside the tree are left out.
Removal subtractFiles(const DirectoryTree &tree, const QVector<RemovedFile> &files);

} // namespace diskanalyzer
