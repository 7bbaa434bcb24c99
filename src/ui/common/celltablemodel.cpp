#include "ui/common/celltablemodel.h"

#include "ui/common/celldelegate.h"

namespace ui {
namespace common {

CellTableModel::CellTableModel(const QVector<Column> &columns, QObject *parent)
    : QAbstractTableModel(parent)
    , m_columns(columns)
{}

void CellTableModel::setActions(const QStringList &actions, int danger)
{
    m_actions = actions;
    m_dangerAction = danger;
}

void CellTableModel::setRows(const QVector<Row> &rows)
{
    beginResetModel();
    m_rows = rows;
    endResetModel();
}

void CellTableModel::appendRow(const Row &row)
{
    beginInsertRows(QModelIndex(), m_rows.size(), m_rows.size());
    m_rows.append(row);
    endInsertRows();
}

QString CellTableModel::idOf(int row) const
{
    return row >= 0 && row < m_rows.size() ? m_rows.at(row).id : QString();
}

int CellTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows.size();
}

int CellTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_columns.size();
}

QVariant CellTableModel::alignment(int column) const
{
    return int((m_columns.at(column).isNumber ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
}

QVariant CellTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const bool isActions = !m_actions.isEmpty() && index.column() == m_columns.size() - 1;
    if (isActions && role == ActionsRole)
        return m_actions;
    if (isActions && role == Qt::AccessibleTextRole)
        return m_actions.join(QStringLiteral("、"));
    if (isActions && role == DangerActionRole && m_dangerAction >= 0)
        return m_dangerAction;
    if (role == Qt::TextAlignmentRole)
        return alignment(index.column());
    const QVector<Cell> &cells = m_rows.at(index.row()).cells;
    if (index.column() >= cells.size())
        return QVariant();
    const Cell &cell = cells.at(index.column());
    if (role == Qt::DisplayRole)
        return cell.text;
    if (role == InkRole && cell.ink.isValid())
        return cell.ink;
    return QVariant();
}

QVariant CellTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
        return m_columns.at(section).title;
    if (orientation == Qt::Horizontal && role == Qt::TextAlignmentRole)
        return alignment(section);
    return QAbstractTableModel::headerData(section, orientation, role);
}

} // namespace common
} // namespace ui
