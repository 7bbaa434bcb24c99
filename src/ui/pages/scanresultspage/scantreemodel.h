#pragma once

#include <QAbstractItemModel>
#include <QHash>
#include <QString>
#include <QVector>

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

    static constexpr int kRootNode = 0;

    explicit ScanTreeModel(QObject *parent = nullptr);

    void clear();
    /// The node of a directory path; makes those that are missing. Views learn of them by
    /// publish().
    int findOrCreateTreePath(const QString &path);
    /// Counts one file in the node and all above it.
    void addFile(int node);
    /// Shows what was added since the last call.
    void publish();

    /// True for the node itself, too.
    bool isBelow(int node, int ancestor) const;
    QString pathOf(int node) const;
    /// The node of that path or the deepest one above it that is there.
    int nodeOfPath(const QString &path) const;
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
    struct Node
    {
        QString name;
        QString path;
        int parent = -1;
        int row = 0; ///< Among the shown children of the parent.
        int files = 0;
        bool known = false;    ///< Views know this node: it is among its parent's `children`.
        bool shown = false;    ///< A view asked for the children.
        bool waiting = false;  ///< Listed in m_waiting.
        QVector<int> children; ///< Those that views know, by name.
        QVector<int> fresh;    ///< Those that they don't.
    };

    int childOf(int parent, const QString &name);
    int append(int parent, const QString &name, const QString &path);
    void showFresh(int node);
    void sortChildren(int node, int sortedCount);
    QModelIndex indexFor(int node, int column = NameColumn) const;

    QVector<Node> m_nodes;
    QHash<QString, int> m_byPath; ///< By path as put together here.
    QHash<QString, int> m_byText; ///< By path as it came.
    QVector<int> m_waiting;       ///< Nodes whose fresh children publish() has to look at.
};

} // namespace scanresults
