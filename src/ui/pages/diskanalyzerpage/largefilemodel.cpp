#include "ui/pages/diskanalyzerpage/largefilemodel.h"

#include "analyzer/scanidentity.h"
#include "ui/common/celldelegate.h"
#include "ui/common/utils/formatutils.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"
#include "ui/pages/diskanalyzerpage/filekinds.h"

#include <QFileInfo>

#include <algorithm>

namespace diskanalyzer {

namespace {

/// Above this, removing rows one by one costs more than showing the list anew.
constexpr int kMaxSingleRemovals = 32;

bool lessBy(int column, const LargeFile &a, const LargeFile &b)
{
    switch (column) {
    case LargeFileModel::NameColumn:
        return a.name.localeAwareCompare(b.name) < 0;
    case LargeFileModel::PathColumn:
        return a.path < b.path;
    case LargeFileModel::TimeColumn:
        return a.modified < b.modified;
    default:
        return a.size < b.size;
    }
}

} // namespace

QVector<LargeFile> largeFilesFromList(const QVariantList &list)
{
    QVector<LargeFile> files;
    files.reserve(list.size());
    for (const QVariant &value : list) {
        const QVariantMap map = value.toMap();
        LargeFile file;
        file.path = map.value(QStringLiteral("path")).toString();
        file.name = QFileInfo(file.path).fileName();
        file.size = map.value(QStringLiteral("size")).toLongLong();
        file.modified = map.value(QStringLiteral("modified")).toDateTime();
        file.identity = identityFromMap(map, file.size);
        files.append(file);
    }
    return files;
}

LargeFileModel::LargeFileModel(QObject *parent)
    : QAbstractTableModel(parent)
{}

void LargeFileModel::setFiles(const QVector<LargeFile> &files)
{
    beginResetModel();
    m_files = files;
    endResetModel();
    recount();
}

void LargeFileModel::removePaths(const QSet<QString> &paths)
{
    const auto isGone = [&paths](const LargeFile &file) {
        return paths.contains(file.path);
    };
    if (paths.size() > kMaxSingleRemovals) {
        beginResetModel();
        m_files.erase(std::remove_if(m_files.begin(), m_files.end(), isGone), m_files.end());
        endResetModel();
        recount();
        return;
    }
    for (int row = m_files.size() - 1; row >= 0; --row) {
        if (!isGone(m_files.at(row)))
            continue;
        beginRemoveRows(QModelIndex(), row, row);
        m_files.removeAt(row);
        endRemoveRows();
    }
    recount();
}

QVector<LargeFile> LargeFileModel::checkedFiles() const
{
    QVector<LargeFile> checked;
    for (const LargeFile &file : m_files) {
        if (file.checked)
            checked.append(file);
    }
    return checked;
}

void LargeFileModel::setAllChecked(bool checked)
{
    if (m_files.isEmpty())
        return;
    for (LargeFile &file : m_files)
        file.checked = checked;
    emit dataChanged(index(0, NameColumn), index(m_files.size() - 1, NameColumn),
                     {Qt::CheckStateRole});
    recount();
}

void LargeFileModel::recount()
{
    m_checkedCount = 0;
    m_checkedBytes = 0;
    for (const LargeFile &file : m_files) {
        if (file.checked) {
            ++m_checkedCount;
            m_checkedBytes += file.size;
        }
    }
    emit checkedChanged();
}

int LargeFileModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_files.size();
}

int LargeFileModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

Qt::ItemFlags LargeFileModel::flags(const QModelIndex &index) const
{
    const Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    return index.column() == NameColumn ? flags | Qt::ItemIsUserCheckable : flags;
}

QVariant LargeFileModel::text(const LargeFile &file, int column) const
{
    switch (column) {
    case NameColumn:
        return file.name;
    case PathColumn:
        return file.path;
    case SizeColumn:
        return formatSize(file.size);
    case TimeColumn:
        return ui::common::utils::formatTimestamp(
            file.modified.isValid() ? file.modified.toMSecsSinceEpoch() : 0);
    default:
        return QVariant();
    }
}

QVariant LargeFileModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const LargeFile &file = m_files.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return text(file, index.column());
    case Qt::CheckStateRole:
        if (index.column() == NameColumn)
            return file.checked ? Qt::Checked : Qt::Unchecked;
        break;
    case Qt::DecorationRole:
        if (index.column() == NameColumn)
            return iconForExtension(QFileInfo(file.name).suffix());
        break;
    case Qt::TextAlignmentRole:
        return int((index.column() == SizeColumn ? Qt::AlignRight : Qt::AlignLeft) |
                   Qt::AlignVCenter);
    case ui::common::ActionsRole:
        if (index.column() == ActionColumn)
            return QStringList{tr("打开目录"), tr("删除")};
        break;
    case ui::common::DangerActionRole:
        return DeleteAction;
    default:
        break;
    }
    return QVariant();
}

bool LargeFileModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!index.isValid() || index.column() != NameColumn || role != Qt::CheckStateRole)
        return false;
    LargeFile &file = m_files[index.row()];
    const bool checked = value.toInt() == Qt::Checked;
    if (file.checked != checked) {
        file.checked = checked;
        m_checkedCount += checked ? 1 : -1;
        m_checkedBytes += checked ? file.size : -file.size;
        emit dataChanged(index, index, {Qt::CheckStateRole});
        emit checkedChanged();
    }
    return true;
}

QVariant LargeFileModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return QVariant();
    if (role == Qt::TextAlignmentRole)
        return int((section == SizeColumn ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return QVariant();
    static const QString kTitles[ColumnCount] = {tr("文件名"), tr("路径"), tr("大小"),
                                                 tr("修改时间"), tr("操作")};
    return section >= 0 && section < ColumnCount ? kTitles[section] : QVariant();
}

void LargeFileModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= ActionColumn)
        return;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList held = persistentIndexList();
    QVector<QString> paths;
    for (const QModelIndex &index : held)
        paths.append(m_files.at(index.row()).path);
    std::stable_sort(
        m_files.begin(), m_files.end(), [column, order](const LargeFile &a, const LargeFile &b) {
            return order == Qt::AscendingOrder ? lessBy(column, a, b) : lessBy(column, b, a);
        });
    if (!held.isEmpty()) {
        QHash<QString, int> rows;
        for (int row = 0; row < m_files.size(); ++row)
            rows.insert(m_files.at(row).path, row);
        QModelIndexList moved;
        for (int i = 0; i < held.size(); ++i)
            moved.append(index(rows.value(paths.at(i)), held.at(i).column()));
        changePersistentIndexList(held, moved);
    }
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

} // namespace diskanalyzer
