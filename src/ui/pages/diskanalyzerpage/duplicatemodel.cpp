#include "ui/pages/diskanalyzerpage/duplicatemodel.h"

#include "ui/common/utils/formatutils.h"

namespace diskanalyzer {

namespace {

constexpr int kHead = -1;

} // namespace

void DuplicateModel::setResult(const DuplicateResult &result)
{
    beginResetModel();
    m_result = result;
    rebuildRows();
    endResetModel();
    emit keepChanged();
}

void DuplicateModel::removePaths(const QSet<QString> &paths)
{
    beginResetModel();
    m_result.removePaths(paths);
    rebuildRows();
    endResetModel();
    emit keepChanged();
}

void DuplicateModel::rebuildRows()
{
    m_rows.clear();
    for (int group = 0; group < m_result.groups.size(); ++group) {
        for (int file = kHead; file < m_result.groups.at(group).files.size(); ++file)
            m_rows.append({group, file});
    }
}

const DuplicateGroup &DuplicateModel::groupAt(const QModelIndex &index) const
{
    return m_result.groups.at(m_rows.at(index.row()).group);
}

const DuplicateFile *DuplicateModel::fileAt(const QModelIndex &index) const
{
    const Row row = m_rows.at(index.row());
    return row.file == kHead ? nullptr : &m_result.groups.at(row.group).files.at(row.file);
}

bool DuplicateModel::isLastOfGroup(const QModelIndex &index) const
{
    return m_rows.at(index.row()).file == groupAt(index).files.size() - 1;
}

void DuplicateModel::toggleKeep(const QModelIndex &index)
{
    if (!index.isValid() || !fileAt(index))
        return;
    const Row row = m_rows.at(index.row());
    DuplicateFile &file = m_result.groups[row.group].files[row.file];
    file.keep = !file.keep;
    // The head counts what is not kept.
    emit dataChanged(this->index(index.row() - row.file - 1), index);
    emit keepChanged();
}

int DuplicateModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows.size();
}

QVariant DuplicateModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const DuplicateFile *file = fileAt(index);
    switch (role) {
    case GroupRole:
        return m_rows.at(index.row()).group;
    case FileRole:
        return m_rows.at(index.row()).file;
    case Qt::DisplayRole:
        return file ? file->path : duplicateGroupTitle(groupAt(index));
    case Qt::ToolTipRole:
        return file ? ui::common::utils::plainTip(file->path) : QVariant();
    case Qt::CheckStateRole:
        return file ? QVariant(file->keep ? Qt::Checked : Qt::Unchecked) : QVariant();
    default:
        return QVariant();
    }
}

} // namespace diskanalyzer
