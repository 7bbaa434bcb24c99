#include "ui/pages/scanresultspage/scantreemodel.h"

#include <QLocale>
#include <QStringList>

#include <algorithm>

namespace scanresults {

ScanTreeModel::ScanTreeModel(QObject *parent)
    : QAbstractItemModel(parent)
{
    clear();
}

void ScanTreeModel::clear()
{
    beginResetModel();
    m_nodes.clear();
    m_byPath.clear();
    m_byText.clear();
    m_waiting.clear();
    Node root;
    root.name = tr("/ (Root)");
    root.path = QStringLiteral("/");
    root.shown = true;
    root.known = true;
    m_nodes.append(root);
    endResetModel();
}

int ScanTreeModel::append(int parent, const QString &name, const QString &path)
{
    Node node;
    node.name = name;
    node.path = path;
    node.parent = parent;
    const int id = m_nodes.size();
    m_nodes.append(node);
    m_byPath.insert(path, id);
    Node &above = m_nodes[parent];
    above.fresh.append(id);
    // A node that gets its first children needs a branch sign, also while it is closed.
    if ((above.shown || above.children.isEmpty()) && !above.waiting) {
        above.waiting = true;
        m_waiting.append(parent);
    }
    return id;
}

int ScanTreeModel::childOf(int parent, const QString &name)
{
    const QString path =
        (parent == kRootNode ? QString() : m_nodes.at(parent).path) + QLatin1Char('/') + name;
    const int known = m_byPath.value(path, -1);
    return known >= 0 ? known : append(parent, name, path);
}

int ScanTreeModel::findOrCreateTreePath(const QString &path)
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

void ScanTreeModel::addFile(int node)
{
    for (; node >= 0; node = m_nodes.at(node).parent)
        ++m_nodes[node].files;
}

void ScanTreeModel::publish()
{
    const QVector<int> waiting = m_waiting;
    m_waiting.clear();
    for (const int node : waiting) {
        m_nodes[node].waiting = false;
        if (m_nodes.at(node).known)
            showFresh(node);
    }
    const QModelIndex root = indexFor(kRootNode, CountColumn);
    emit dataChanged(root, root);
}

void ScanTreeModel::showFresh(int node)
{
    Node &above = m_nodes[node];
    if (above.fresh.isEmpty())
        return;
    const int first = above.children.size();
    beginInsertRows(indexFor(node), first, first + above.fresh.size() - 1);
    for (const int child : above.fresh) {
        m_nodes[child].row = above.children.size();
        m_nodes[child].known = true;
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
            QString::compare(m_nodes.at(a).name, m_nodes.at(b).name, Qt::CaseInsensitive);
        return order != 0 ? order < 0 : m_nodes.at(a).name < m_nodes.at(b).name;
    };
    QVector<int> sorted = m_nodes.at(node).children;
    std::sort(sorted.begin() + sortedCount, sorted.end(), byName);
    std::inplace_merge(sorted.begin(), sorted.begin() + sortedCount, sorted.end(), byName);
    if (sorted == m_nodes.at(node).children)
        return;
    const QList<QPersistentModelIndex> parents = {QPersistentModelIndex(indexFor(node))};
    emit layoutAboutToBeChanged(parents);
    const QModelIndexList before = persistentIndexList();
    for (int row = 0; row < sorted.size(); ++row)
        m_nodes[sorted.at(row)].row = row;
    m_nodes[node].children = sorted;
    QModelIndexList after;
    after.reserve(before.size());
    for (const QModelIndex &index : before)
        after.append(indexFor(nodeOf(index), index.column()));
    changePersistentIndexList(before, after);
    emit layoutChanged(parents);
}

bool ScanTreeModel::isBelow(int node, int ancestor) const
{
    // A parent is always made before its children.
    while (node > ancestor)
        node = m_nodes.at(node).parent;
    return node == ancestor;
}

QString ScanTreeModel::pathOf(int node) const
{
    return m_nodes.at(node).path;
}

int ScanTreeModel::nodeOfPath(const QString &path) const
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

int ScanTreeModel::nodeOf(const QModelIndex &index) const
{
    return index.isValid() ? static_cast<int>(index.internalId()) : -1;
}

QModelIndex ScanTreeModel::indexFor(int node, int column) const
{
    return createIndex(m_nodes.at(node).row, column, static_cast<quintptr>(node));
}

QModelIndex ScanTreeModel::indexOf(int node)
{
    QVector<int> way;
    for (int above = m_nodes.at(node).parent; above >= 0; above = m_nodes.at(above).parent)
        way.prepend(above);
    for (const int above : way)
        fetchMore(indexFor(above));
    return indexFor(node);
}

QModelIndex ScanTreeModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent))
        return QModelIndex();
    const int node = parent.isValid() ? m_nodes.at(nodeOf(parent)).children.at(row) : kRootNode;
    return createIndex(row, column, static_cast<quintptr>(node));
}

QModelIndex ScanTreeModel::parent(const QModelIndex &index) const
{
    const int above = index.isValid() ? m_nodes.at(nodeOf(index)).parent : -1;
    return above < 0 ? QModelIndex() : indexFor(above);
}

int ScanTreeModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return 1;
    return parent.column() == NameColumn ? m_nodes.at(nodeOf(parent)).children.size() : 0;
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
    const Node &node = m_nodes.at(nodeOf(parent));
    return parent.column() == NameColumn && !(node.children.isEmpty() && node.fresh.isEmpty());
}

bool ScanTreeModel::canFetchMore(const QModelIndex &parent) const
{
    return parent.isValid() && !m_nodes.at(nodeOf(parent)).fresh.isEmpty();
}

void ScanTreeModel::fetchMore(const QModelIndex &parent)
{
    if (!parent.isValid())
        return;
    m_nodes[nodeOf(parent)].shown = true;
    showFresh(nodeOf(parent));
}

QVariant ScanTreeModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const Node &node = m_nodes.at(nodeOf(index));
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
