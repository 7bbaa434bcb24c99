#pragma once

#include "ui/pages/scanresultspage/directorynodes.h"

#include <QAbstractItemModel>
#include <QString>

namespace scanresults {

/// The directories of the found files below "/ (Root)", with the number of files in and below each.
/// A view is shown the children of a node only once it asks for them, so that 50,000 directories
/// below closed branches cost their records and nothing else.
class ScanTreeModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    enum Column { NameColumn, CountColumn, ColumnCount };
    enum Role { PathRole = Qt::UserRole };

    static constexpr int kRootNode = DirectoryNodes::kRootNode;

    explicit ScanTreeModel(QObject *parent = nullptr);

    void clear();
    /// The node of a directory path; makes those that are missing. Views learn of them by
    /// publish().
    int findOrCreateTreePath(const QString &path) { return m_tree.findOrCreateTreePath(path); }
    /// Counts files in the node and all above it.
    void addFiles(int node, int count) { m_tree.addFiles(node, count); }
    /// Shows what was added since the last call.
    void publish();

    /// Directories with the root only, to be filled and adopted.
    static DirectoryNodes emptyNodes();
    /// Takes these directories in the place of its own. All indexes go.
    void adopt(const DirectoryNodes &directories);

    std::vector<char> nodesBelow(int ancestor) const { return m_tree.nodesBelow(ancestor); }
    QString pathOf(int node) const { return m_tree.nodes.at(node).path; }
    /// The node of that path or the deepest one above it that is there.
    int nodeOfPath(const QString &path) const { return m_tree.nodeOfPath(path); }
    int nodeOf(const QModelIndex &index) const;
    /// Reveals the children on the way to the node.
    QModelIndex indexOf(int node);

    QModelIndex index(int row, int column, const QModelIndex &parent) const override;
    QModelIndex parent(const QModelIndex &index) const override;
    int rowCount(const QModelIndex &parent) const override;
    int columnCount(const QModelIndex &parent) const override;
    bool hasChildren(const QModelIndex &parent) const override;
    bool canFetchMore(const QModelIndex &parent) const override;
    void fetchMore(const QModelIndex &parent) override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    void showFresh(int node);
    void sortChildren(int node, int sortedCount);
    QModelIndex indexFor(int node, int column = NameColumn) const;

    DirectoryNodes m_tree;
};

} // namespace scanresults
