// What the cells of the result table show; order and filter are in scanresultsmodel.cpp.
#include "ui/common/celldelegate.h"
#include "ui/common/filetypeicon.h"
#include "ui/common/theme.h"
#include "ui/common/utils/filetypecategoryutils.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"

using ui::common::ThemeColors;
namespace utils = ui::common::utils;

namespace scanresults {

QVariant ScanResultsModel::text(const FoundRow &row, int column) const
{
    switch (column) {
    case NameColumn:
        return row.name.isEmpty() ? tr("未知") : row.name;
    case SizeColumn:
        return row.size;
    case TypeColumn:
        return row.type.isEmpty() ? tr("未知") : row.type;
    case TimeColumn:
        return utils::deletionTimeText(row.deletionTime);
    case PathColumn:
        return row.path();
    case SourceColumn:
        return row.sourceWord;
    case IntegrityColumn:
        return row.label;
    case ChanceColumn:
        return row.probability.isEmpty() ? tr("未知") : row.probability;
    default:
        return QVariant();
    }
}

QVariant ScanResultsModel::nameData(const FoundRow &row, int role) const
{
    switch (role) {
    case Qt::DecorationRole:
        return icon(row.type);
    case FileIdRole:
        return row.fileId;
    case SizeBytesRole:
        return row.sizeBytes;
    case SourceRole:
        return row.source;
    case IntegrityLabelRole:
        return row.label;
    case IntegrityReasonRole:
        return row.reason;
    default:
        return QVariant();
    }
}

QVariant ScanResultsModel::checkData(const QModelIndex &index, int role) const
{
    const FoundRow &row = this->row(index);
    const bool checked = isChecked(arrivalOf(index));
    switch (role) {
    case CheckedRole:
        return checked;
    case CheckableRole:
        return !row.fileId.isEmpty();
    case Qt::CheckStateRole: // The delegate paints the mark; screen readers ask for this one.
        return checked ? Qt::Checked : Qt::Unchecked;
    case Qt::AccessibleTextRole:
        return tr("选择 %1").arg(text(row, NameColumn).toString());
    default:
        return QVariant();
    }
}

QVariant ScanResultsModel::toolTip(const FoundRow &row, int column) const
{
    switch (column) {
    case CheckColumn:
        return row.fileId.isEmpty() ? QVariant(tr("服务没有给出此文件的标识，无法恢复"))
                                    : QVariant();
    case DetailColumn:
        return tr("查看详情");
    case SourceColumn:
        return row.sourceWord;
    case IntegrityColumn:
        return row.reason;
    default:
        return QVariant();
    }
}

QVariant ScanResultsModel::chanceData(const FoundRow &row, int role) const
{
    // A pill's colour judges; what is not known is not judged.
    if (text(row, ChanceColumn) == tr("未知"))
        return role == ui::common::InkRole ? QVariant(ThemeColors::current().textMuted)
                                           : QVariant();
    return role == ui::common::PillRole ? QVariant(utils::probabilityTone(row.probability))
                                        : QVariant();
}

QPixmap ScanResultsModel::icon(const QString &type) const
{
    const QString category = utils::FileTypeCategoryUtils::categoryOfType(type);
    QPixmap &pixmap = m_icons[category];
    if (pixmap.isNull())
        pixmap = ui::common::iconForFileType(type);
    return pixmap;
}

QVariant ScanResultsModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const FoundRow &row = this->row(index);
    if (role == Qt::DisplayRole)
        return text(row, index.column());
    if (role == Qt::ToolTipRole)
        return toolTip(row, index.column());
    switch (index.column()) {
    case CheckColumn:
        return checkData(index, role);
    case DetailColumn:
        return role == Qt::AccessibleTextRole ? QVariant(tr("查看详情")) : QVariant();
    case NameColumn:
        return nameData(row, role);
    case SizeColumn:
        if (role == Qt::TextAlignmentRole)
            return static_cast<int>(Qt::AlignRight | Qt::AlignVCenter);
        return QVariant();
    case ChanceColumn:
        return chanceData(row, role);
    default:
        return QVariant();
    }
}

QVariant ScanResultsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= ColumnCount)
        return QVariant();
    switch (role) {
    case Qt::DisplayRole: {
        static const QString kTitles[ColumnCount] = {
            QString(),      tr("名称"), QString(),  tr("大小"),   tr("类型"),
            tr("删除时间"), tr("路径"), tr("来源"), tr("完整性"), tr("恢复几率")};
        return kTitles[section];
    }
    case Qt::AccessibleTextRole:
        if (section == CheckColumn)
            return tr("选择");
        return section == DetailColumn ? QVariant(tr("详情")) : QVariant();
    case Qt::TextAlignmentRole:
        return section == SizeColumn ? static_cast<int>(Qt::AlignRight | Qt::AlignVCenter)
                                     : static_cast<int>(Qt::AlignLeft | Qt::AlignVCenter);
    case Qt::InitialSortOrderRole: {
        // The first click on these asks for the largest, the latest, the best.
        const bool fromTop =
            section == SizeColumn || section == TimeColumn || section == ChanceColumn;
        return static_cast<int>(fromTop ? Qt::DescendingOrder : Qt::AscendingOrder);
    }
    default:
        return QVariant();
    }
}

} // namespace scanresults
