#include "ui/pages/recoverydetaildialog/fileresultmodel.h"

#include "ui/common/celldelegate.h"
#include "ui/common/statwidgets.h"
#include "ui/common/theme.h"

using ui::common::StatusPill;

namespace recoveryresult {

FileResultModel::FileResultModel(int columns, QObject *parent)
    : QAbstractTableModel(parent)
    , m_columns(qBound(1, columns, int(ColumnCount)))
{}

void FileResultModel::setFiles(const QVector<FileResult> &files, bool isRunning)
{
    beginResetModel();
    m_files = files;
    m_isRunning = isRunning;
    m_rows.clear();
    m_rows.reserve(files.size());
    for (int row = 0; row < files.size(); ++row)
        m_rows.insert(files.at(row).fileId, row);
    endResetModel();
}

void FileResultModel::setRunning(bool isRunning)
{
    if (m_isRunning == isRunning)
        return;
    m_isRunning = isRunning;
    if (!m_files.isEmpty())
        emit dataChanged(index(0, 0), index(m_files.size() - 1, m_columns - 1));
}

void FileResultModel::update(const FileResult &result)
{
    const auto known = m_rows.constFind(result.fileId);
    if (known == m_rows.constEnd()) {
        const int row = m_files.size();
        beginInsertRows(QModelIndex(), row, row);
        m_files.append(result);
        if (result.name.isEmpty())
            m_files.last().name = result.fileId;
        m_rows.insert(result.fileId, row);
        endInsertRows();
        return;
    }
    const int row = known.value();
    const QString name = result.name.isEmpty() ? m_files.at(row).name : result.name;
    m_files[row] = result;
    m_files[row].name = name;
    emit dataChanged(index(row, 0), index(row, m_columns - 1));
}

int FileResultModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_files.size();
}

int FileResultModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_columns;
}

QString FileResultModel::text(const FileResult &file, int column) const
{
    switch (column) {
    case NameColumn:
        return file.name;
    case StatusColumn:
        return statusText(file.status, m_isRunning);
    case ConclusionColumn:
        return conclusion(file);
    default:
        return QString();
    }
}

QVariant FileResultModel::statusStyle(const FileResult &file, int role) const
{
    const bool isWaiting = file.status.isEmpty() && m_isRunning;
    if (role == ui::common::InkRole)
        return isWaiting ? QVariant(ui::common::ThemeColors::current().textMuted) : QVariant();
    if (isWaiting)
        return QVariant();
    switch (outcomeOf(file.status)) {
    case Outcome::Success:
        return int(StatusPill::Success);
    case Outcome::Failure:
        return file.status == QLatin1String("partial") ? int(StatusPill::Warning)
                                                       : int(StatusPill::Danger);
    case Outcome::Pending:
        return m_isRunning ? int(StatusPill::Info) : int(StatusPill::Warning);
    case Outcome::Skipped:
        break;
    }
    return int(StatusPill::Info);
}

QVariant FileResultModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const FileResult &file = m_files.at(index.row());
    if (role == Qt::DisplayRole)
        return text(file, index.column());
    if (index.column() == ActionColumn && role == ui::common::ActionsRole)
        return QStringList{tr("详情")};
    if (index.column() == StatusColumn &&
        (role == ui::common::PillRole || role == ui::common::InkRole))
        return statusStyle(file, role);
    return QVariant();
}

QVariant FileResultModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case NameColumn:
        return tr("文件名");
    case StatusColumn:
        return tr("状态");
    case ConclusionColumn:
        return tr("结论");
    default:
        return tr("操作");
    }
}

} // namespace recoveryresult
