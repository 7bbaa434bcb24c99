#pragma once

#include <QHash>
#include <QString>
#include <QVector>

#include <vector>

namespace scanresults {

/// The directories of found files as records, the root first and every parent before its children.
/// A plain value: it can be put together on another thread than the one that shows it.
class DirectoryNodes
{
public:
    static constexpr int kRootNode = 0;

    struct Node
    {
        QString name;
        QString path;
        int parent = -1;
        int row = 0; ///< Among the shown children of the parent.
        int files = 0;
        bool known = false;    ///< Views know this node: it is among its parent's `children`.
        bool shown = false;    ///< A view asked for the children.
        bool waiting = false;  ///< Listed in `waiting`.
        QVector<int> children; ///< Those that views know, by name.
        QVector<int> fresh;    ///< Those that they don't.
    };

    explicit DirectoryNodes(const QString &rootName = QString());

    /// The node of a directory path; makes those that are missing.
    int findOrCreateTreePath(const QString &path);
    /// Counts files in the node and all above it.
    void addFiles(int node, int count);
    /// True for the node itself, too.
    bool isBelow(int node, int ancestor) const;
    /// By node: whether it is `ancestor` or below it. Empty for the root, below which all are.
    std::vector<char> nodesBelow(int ancestor) const;
    /// The node of that path or the deepest one above it that is there.
    int nodeOfPath(const QString &path) const;

    QVector<Node> nodes;
    QVector<int> waiting; ///< Nodes whose fresh children views have to be told of.

private:
    int childOf(int parent, const QString &name);
    int append(int parent, const QString &name, const QString &path);

    QHash<QString, int> m_byPath; ///< By path as put together here.
    QHash<QString, int> m_byText; ///< By path as it came.
};

} // namespace scanresults
