#include "ui/pages/filesharepage/sessiontablemodel.h"

#include "ui/common/celldelegate.h"
#include "ui/common/sharewidgets.h"

#include <algorithm>

namespace fileshare {

namespace {

QVariant alignment(int column)
{
    const bool isNumber = column == SessionTableModel::DownloadsColumn;
    return int((isNumber ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
}

QVariant cellText(const SessionRow &row, int column)
{
    switch (column) {
    case SessionTableModel::ContentColumn:
        return row.content;
    case SessionTableModel::PathColumn:
        return row.path;
    case SessionTableModel::PortColumn:
        return QString::number(row.port);
    case SessionTableModel::PermissionColumn:
        return row.permission;
    case SessionTableModel::StatusColumn:
        return row.status;
    case SessionTableModel::TimeColumn:
        return row.time;
    case SessionTableModel::DownloadsColumn:
        return QString::number(row.downloads);
    default:
        return QVariant();
    }
}

} // namespace

SessionTableModel::SessionTableModel(QObject *parent)
    : QAbstractTableModel(parent)
{}

bool SessionTableModel::hasSameRecords(const QVector<SessionRow> &rows) const
{
    return std::equal(rows.begin(), rows.end(), m_rows.begin(), m_rows.end(),
                      [](const SessionRow &a, const SessionRow &b) { return a.id == b.id; });
}

void SessionTableModel::setRows(const QVector<SessionRow> &rows)
{
    if (hasSameRecords(rows)) {
        m_rows = rows;
        if (!rows.isEmpty())
            emit dataChanged(index(0, 0), index(rows.size() - 1, ColumnCount - 1));
        return;
    }
    beginResetModel();
    m_rows = rows;
    endResetModel();
}

void SessionTableModel::updateRow(const SessionRow &row)
{
    const int at = rowOf(row.id);
    if (at < 0)
        return;
    m_rows[at] = row;
    emit dataChanged(index(at, 0), index(at, ColumnCount - 1));
}

QString SessionTableModel::idAt(int row) const
{
    return row >= 0 && row < m_rows.size() ? m_rows.at(row).id : QString();
}

int SessionTableModel::rowOf(const QString &id) const
{
    const auto found = std::find_if(m_rows.begin(), m_rows.end(),
                                    [&id](const SessionRow &row) { return row.id == id; });
    return found == m_rows.end() ? -1 : int(found - m_rows.begin());
}

bool SessionTableModel::isActiveAt(int row) const
{
    return row >= 0 && row < m_rows.size() && isActive(m_rows.at(row).state);
}

int SessionTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows.size();
}

int SessionTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant SessionTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const SessionRow &row = m_rows.at(index.row());
    const int column = index.column();
    if (role == Qt::DisplayRole)
        return cellText(row, column);
    if (role == Qt::TextAlignmentRole)
        return alignment(column);
    if (role == Qt::ToolTipRole && column == PathColumn)
        return plainTip(row.paths.join(QLatin1Char('\n')));
    if (role == ui::common::PillRole && column == StatusColumn)
        return int(pillForStatus(row.state));
    if (role == ui::common::ActionsRole && column == ActionColumn)
        return sessionActions(isActive(row.state));
    if (role == ui::common::DangerActionRole && column == ActionColumn)
        return int(DeleteAction);
    return QVariant();
}

QVariant SessionTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    static const QStringList kTitles = {tr("共享内容"), tr("路径"), tr("共享端口"),
                                        tr("共享权限"), tr("状态"), tr("共享时间"),
                                        tr("下载次数"), tr("操作")};
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
        return kTitles.value(section);
    if (orientation == Qt::Horizontal && role == Qt::TextAlignmentRole)
        return alignment(section);
    return QAbstractTableModel::headerData(section, orientation, role);
}

} // namespace fileshare
