#include "ui/pages/scanresultspage/scantreemodel.h"

#include <QLocale>

#include <algorithm>

namespace scanresults {

ScanTreeModel::ScanTreeModel(QObject *parent)
    : QAbstractItemModel(parent)
{
    clear();
}

DirectoryNodes ScanTreeModel::emptyNodes()
{
    return DirectoryNodes(tr("/ (Root)"));
}

void ScanTreeModel::clear()
{
    beginResetModel();
    m_tree = emptyNodes();
    endResetModel();
}

void ScanTreeModel::adopt(const DirectoryNodes &directories)
{
    beginResetModel();
    m_tree = directories;
    endResetModel();
    publish();
}

void ScanTreeModel::publish()
{
    const QVector<int> waiting = m_tree.waiting;
    m_tree.waiting.clear();
    for (const int node : waiting) {
        m_tree.nodes[node].waiting = false;
        if (m_tree.nodes.at(node).known)
            showFresh(node);
    }
    const QModelIndex root = indexFor(kRootNode, CountColumn);
    emit dataChanged(root, root);
}

void ScanTreeModel::showFresh(int node)
{
    DirectoryNodes::Node &above = m_tree.nodes[node];
    if (above.fresh.isEmpty())
        return;
    const int first = above.children.size();
    beginInsertRows(indexFor(node), first, first + above.fresh.size() - 1);
    for (const int child : above.fresh) {
        m_tree.nodes[child].row = above.children.size();
        m_tree.nodes[child].known = true;
        above.children.append(child);
    }
    above.fresh.clear();
    endInsertRows();
    sortChildren(node, first);
}

void ScanTreeModel::sortChildren(int node, int sortedCount)
{
    const auto byName = [this](int a, int b) {
        const int order =
            QString::compare(m_tree.nodes.at(a).name, m_tree.nodes.at(b).name, Qt::CaseInsensitive);
        return order != 0 ? order < 0 : m_tree.nodes.at(a).name < m_tree.nodes.at(b).name;
    };
    QVector<int> sorted = m_tree.nodes.at(node).children;
    std::sort(sorted.begin() + sortedCount, sorted.end(), byName);
    std::inplace_merge(sorted.begin(), sorted.begin() + sortedCount, sorted.end(), byName);
    if (sorted == m_tree.nodes.at(node).children)
        return;
    const QList<QPersistentModelIndex> parents = {QPersistentModelIndex(indexFor(node))};
    emit layoutAboutToBeChanged(parents);
    const QModelIndexList before = persistentIndexList();
    for (int row = 0; row < sorted.size(); ++row)
        m_tree.nodes[sorted.at(row)].row = row;
    m_tree.nodes[node].children = sorted;
    QModelIndexList after;
    after.reserve(before.size());
    for (const QModelIndex &index : before)
        after.append(indexFor(nodeOf(index), index.column()));
    changePersistentIndexList(before, after);
    emit layoutChanged(parents);
}

int ScanTreeModel::nodeOf(const QModelIndex &index) const
{
    return index.isValid() ? static_cast<int>(index.internalId()) : -1;
}

QModelIndex ScanTreeModel::indexFor(int node, int column) const
{
    return createIndex(m_tree.nodes.at(node).row, column, static_cast<quintptr>(node));
}

QModelIndex ScanTreeModel::indexOf(int node)
{
    QVector<int> way;
    for (int above = m_tree.nodes.at(node).parent; above >= 0;
         above = m_tree.nodes.at(above).parent)
        way.prepend(above);
    for (const int above : way)
        fetchMore(indexFor(above));
    return indexFor(node);
}

QModelIndex ScanTreeModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent))
        return QModelIndex();
    const int node =
        parent.isValid() ? m_tree.nodes.at(nodeOf(parent)).children.at(row) : kRootNode;
    return createIndex(row, column, static_cast<quintptr>(node));
}

QModelIndex ScanTreeModel::parent(const QModelIndex &index) const
{
    const int above = index.isValid() ? m_tree.nodes.at(nodeOf(index)).parent : -1;
    return above < 0 ? QModelIndex() : indexFor(above);
}

int ScanTreeModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return 1;
    return parent.column() == NameColumn ? m_tree.nodes.at(nodeOf(parent)).children.size() : 0;
}

int ScanTreeModel::columnCount(const QModelIndex &parent) const
{
    Q_UNUSED(parent)
    return ColumnCount;
}

bool ScanTreeModel::hasChildren(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return true;
    const DirectoryNodes::Node &node = m_tree.nodes.at(nodeOf(parent));
    return parent.column() == NameColumn && !(node.children.isEmpty() && node.fresh.isEmpty());
}

bool ScanTreeModel::canFetchMore(const QModelIndex &parent) const
{
    return parent.isValid() && !m_tree.nodes.at(nodeOf(parent)).fresh.isEmpty();
}

void ScanTreeModel::fetchMore(const QModelIndex &parent)
{
    if (!parent.isValid())
        return;
    m_tree.nodes[nodeOf(parent)].shown = true;
    showFresh(nodeOf(parent));
}

QVariant ScanTreeModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const DirectoryNodes::Node &node = m_tree.nodes.at(nodeOf(index));
    switch (role) {
    case Qt::DisplayRole:
        return index.column() == NameColumn ? node.name : QLocale().toString(node.files);
    case Qt::ToolTipRole:
    case PathRole:
        return node.path;
    case Qt::TextAlignmentRole:
        if (index.column() == CountColumn)
            return static_cast<int>(Qt::AlignRight | Qt::AlignVCenter);
        return QVariant();
    default:
        return QVariant();
    }
}

QVariant ScanTreeModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return QVariant();
    if (role == Qt::TextAlignmentRole && section == CountColumn)
        return static_cast<int>(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return QVariant();
    return section == NameColumn ? tr("目录") : tr("文件数");
}

} // namespace scanresults
