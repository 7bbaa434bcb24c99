#include "ui/pages/filesharedetaildialog/accesslogmodel.h"

#include "ui/common/celldelegate.h"
#include "ui/common/statwidgets.h"
#include "ui/common/utils/sharetext.h"
#include "ui/pages/filesharedetaildialog/logrules.h"

#include <QStringList>

using ui::common::StatusPill;

namespace fileshare {

namespace {

const QString kTimeFormat = QStringLiteral("MM-dd HH:mm:ss");

QString cellText(const AccessLogEntry &entry, int column)
{
    switch (column) {
    case AccessLogModel::TimeColumn:
        return timeText(entry.timestamp, kTimeFormat);
    case AccessLogModel::IpColumn:
        return entry.clientIp;
    case AccessLogModel::ActionColumn:
        return actionText(entry.action);
    case AccessLogModel::FileColumn:
        return entry.filePath;
    default:
        return outcomeText(outcomeOf(entry.action));
    }
}

StatusPill::Type pillOf(LogOutcome outcome)
{
    if (outcome == LogOutcome::Success)
        return StatusPill::Success;
    return outcome == LogOutcome::Conflict ? StatusPill::Warning : StatusPill::Danger;
}

} // namespace

AccessLogModel::AccessLogModel(QObject *parent)
    : QAbstractTableModel(parent)
{}

void AccessLogModel::setEntries(const QList<AccessLogEntry> &entries)
{
    beginResetModel();
    m_entries = entries;
    endResetModel();
}

int AccessLogModel::entryIdAt(int row) const
{
    return row >= 0 && row < m_entries.size() ? m_entries.at(row).id : 0;
}

int AccessLogModel::rowOf(int entryId) const
{
    for (int row = 0; row < m_entries.size(); ++row) {
        if (m_entries.at(row).id == entryId)
            return row;
    }
    return -1;
}

int AccessLogModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_entries.size();
}

int AccessLogModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant AccessLogModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const AccessLogEntry &entry = m_entries.at(index.row());
    if (role == Qt::DisplayRole)
        return cellText(entry, index.column());
    if (role == Qt::ToolTipRole && index.column() == FileColumn && !entry.filePath.isEmpty())
        return plainTip(entry.filePath);
    if (role == ui::common::PillRole && index.column() == OutcomeColumn)
        return int(pillOf(outcomeOf(entry.action)));
    return QVariant();
}

QVariant AccessLogModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    static const QStringList kTitles = {tr("时间"), tr("IP"), tr("操作"), tr("文件"), tr("状态")};
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
        return kTitles.value(section);
    return QAbstractTableModel::headerData(section, orientation, role);
}

} // namespace fileshare
