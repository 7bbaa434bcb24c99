#include "ui/pages/diskanalyzerpage/directorymodel.h"

#include "ui/common/iconwidget.h"
#include "ui/common/theme.h"
#include "ui/common/utils/formatutils.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"

#include <QIcon>
#include <QtConcurrentRun>

using ui::common::IconWidget;
using ui::common::ThemeColors;

namespace diskanalyzer {

namespace {

constexpr int kIconSize = 16;
/// Above this, a signal for each level costs more than one for all.
constexpr int kMaxLevelSignals = 32;

double shareOf(const DirectoryNode *node)
{
    if (!node->parent)
        return node->totalSize > 0 ? 100 : 0;
    return sharePercent(node->totalSize, node->parent->totalSize);
}

} // namespace

DirectoryModel::DirectoryModel(QObject *parent)
    : QAbstractItemModel(parent)
{}

DirectoryModel::~DirectoryModel()
{
    setTree(nullptr);
}

void DirectoryModel::setTree(const DirectoryTree &tree)
{
    beginResetModel();
    DirectoryTree old = std::move(m_tree);
    m_tree = tree;
    endResetModel();
    if (old)
        QtConcurrent::run([held = std::move(old)]() mutable { held.reset(); });
}

void DirectoryModel::removeFiles(const QVector<RemovedFile> &files)
{
    const Removal removal = subtractFiles(m_tree, files);
    if (removal.changedLevels.size() > kMaxLevelSignals) {
        emit layoutAboutToBeChanged();
        emit layoutChanged(); // The same rows, all to be painted anew.
        return;
    }
    // Shares of siblings change with their parent's size.
    emitLevelChanged(nullptr);
    for (DirectoryNode *level : removal.changedLevels)
        emitLevelChanged(level);
}

void DirectoryModel::emitLevelChanged(DirectoryNode *level)
{
    const QModelIndex parentIndex = indexOf(level);
    const int last = rowCount(parentIndex) - 1;
    if (last >= 0)
        emit dataChanged(index(0, SizeColumn, parentIndex), index(last, ShareColumn, parentIndex));
}

DirectoryNode *DirectoryModel::nodeOf(const QModelIndex &index) const
{
    return index.isValid() ? static_cast<DirectoryNode *>(index.internalPointer()) : nullptr;
}

QModelIndex DirectoryModel::indexOf(DirectoryNode *node) const
{
    return node ? createIndex(node->row, NameColumn, node) : QModelIndex();
}

QModelIndex DirectoryModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent))
        return QModelIndex();
    const DirectoryNode *node = nodeOf(parent);
    return createIndex(row, column, node ? node->children[size_t(row)].get() : m_tree.get());
}

QModelIndex DirectoryModel::parent(const QModelIndex &child) const
{
    const DirectoryNode *node = nodeOf(child);
    return node ? indexOf(node->parent) : QModelIndex();
}

bool DirectoryModel::hasChildren(const QModelIndex &parent) const
{
    return rowCount(parent) > 0;
}

int DirectoryModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return m_tree ? 1 : 0;
    return parent.column() == NameColumn ? int(nodeOf(parent)->children.size()) : 0;
}

int DirectoryModel::columnCount(const QModelIndex &) const
{
    return ColumnCount;
}

QVariant DirectoryModel::data(const QModelIndex &index, int role) const
{
    const DirectoryNode *node = nodeOf(index);
    if (!node)
        return QVariant();
    if (role == ShareRole)
        return shareOf(node);
    if (role == Qt::TextAlignmentRole && index.column() == SizeColumn)
        return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role == Qt::DecorationRole && index.column() == NameColumn) {
        static const QIcon kFolder(
            IconWidget::makePixmap(IconWidget::Folder, ThemeColors::current().infoText, kIconSize));
        return kFolder;
    }
    if (role == Qt::ToolTipRole && index.column() == NameColumn)
        return ui::common::utils::plainTip(pathOf(node));
    if (role != Qt::DisplayRole)
        return QVariant();
    switch (index.column()) {
    case NameColumn:
        return node->name;
    case SizeColumn:
        return formatSize(node->totalSize);
    default:
        return percentText(shareOf(node));
    }
}

QVariant DirectoryModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return QVariant();
    if (role == Qt::TextAlignmentRole && section == SizeColumn)
        return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return QVariant();
    static const QString kTitles[ColumnCount] = {tr("名称"), tr("大小"), tr("占比")};
    return section >= 0 && section < ColumnCount ? kTitles[section] : QVariant();
}

} // namespace diskanalyzer
