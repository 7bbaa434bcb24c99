#include "ui/pages/scanresultspage/scanrowdelegate.h"

#include "ui/common/iconwidget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include <QApplication>
#include <QPainter>
#include <QTableView>

using ui::common::IconWidget;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace scanresults {

namespace {

constexpr int kCellPadding = 12; ///< As in the style sheet of table items.
constexpr int kCheckSize = 16;
constexpr int kButtonRadius = 8;
constexpr int kButtonIcon = 16;
constexpr int kSelectionBar = 3; ///< Marks the current row by more than its colour.
constexpr ushort kDetailGlyph = 0xF05A;

QString longestWord(int column)
{
    return column == ScanResultsModel::SourceColumn ? QStringLiteral("日志恢复")
                                                    : QStringLiteral("边界已验证");
}

QStyle *styleOf(const QStyleOptionViewItem &option)
{
    return option.widget ? option.widget->style() : QApplication::style();
}

} // namespace

StableTableItemDelegate::StableTableItemDelegate(QTableView *view)
    : CellDelegate(view)
{
    setElideMode(ScanResultsModel::PathColumn, Qt::ElideLeft);
}

void StableTableItemDelegate::initStyleOption(QStyleOptionViewItem *option,
                                              const QModelIndex &index) const
{
    CellDelegate::initStyleOption(option, index);
    option->state.setFlag(QStyle::State_HasFocus, false);
    // The name has a column of its own: where a path is cut, the last folder is what stays.
    if (index.column() == ScanResultsModel::PathColumn &&
        option->fontMetrics.horizontalAdvance(option->text) >
            option->rect.width() - 2 * kCellPadding)
        option->text.truncate(option->text.lastIndexOf(QLatin1Char('/')) + 1);
}

QSize StableTableItemDelegate::sizeHint(const QStyleOptionViewItem &option,
                                        const QModelIndex &index) const
{
    QSize size = CellDelegate::sizeHint(option, index);
    if (index.column() == ScanResultsModel::SourceColumn ||
        index.column() == ScanResultsModel::IntegrityColumn) {
        const int least = option.fontMetrics.horizontalAdvance(longestWord(index.column()));
        size.setWidth(qMax(size.width(), least + 2 * kCellPadding));
    }
    return size;
}

CenterIconTableDelegate::CenterIconTableDelegate(QTableView *view)
    : StableTableItemDelegate(view)
    , m_view(view)
{}

void CenterIconTableDelegate::initStyleOption(QStyleOptionViewItem *option,
                                              const QModelIndex &index) const
{
    StableTableItemDelegate::initStyleOption(option, index);
    option->text.clear();
    option->features.setFlag(QStyleOptionViewItem::HasCheckIndicator, false);
}

void CenterIconTableDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                                    const QModelIndex &index) const
{
    StableTableItemDelegate::paint(painter, option, index);
    if (index.column() == ScanResultsModel::DetailColumn) {
        paintButton(painter, option);
        return;
    }
    paintCheckMark(painter, option, index);
    if (option.state.testFlag(QStyle::State_Selected))
        painter->fillRect(
            QRect(option.rect.left(), option.rect.top(), kSelectionBar, option.rect.height() - 1),
            ThemeColors::current().accent);
}

void CenterIconTableDelegate::paintCheckMark(QPainter *painter, const QStyleOptionViewItem &option,
                                             const QModelIndex &index) const
{
    QStyleOptionViewItem mark = option;
    mark.rect = QStyle::alignedRect(option.direction, Qt::AlignCenter,
                                    QSize(kCheckSize + 2, kCheckSize + 2),
                                    option.rect.adjusted(0, 0, 0, -1));
    mark.features |= QStyleOptionViewItem::HasCheckIndicator;
    mark.state =
        index.data(ScanResultsModel::CheckedRole).toBool() ? QStyle::State_On : QStyle::State_Off;
    mark.state.setFlag(QStyle::State_Enabled, index.data(ScanResultsModel::CheckableRole).toBool());
    styleOf(option)->drawPrimitive(QStyle::PE_IndicatorItemViewItemCheck, &mark, painter,
                                   option.widget);
}

void CenterIconTableDelegate::paintButton(QPainter *painter,
                                          const QStyleOptionViewItem &option) const
{
    const ThemeColors &colors = ThemeColors::current();
    const QPoint mouse = m_view->viewport()->mapFromGlobal(QCursor::pos());
    const bool hover = m_view->viewport()->underMouse() && option.rect.contains(mouse);
    const int side = qMin(metrics::rowControlHeight(), option.rect.height() - 4);
    const QRect button = QStyle::alignedRect(option.direction, Qt::AlignCenter, QSize(side, side),
                                             option.rect.adjusted(0, 0, 0, -1));
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    if (hover) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(colors.activeNavBackground);
        painter->drawRoundedRect(button, kButtonRadius, kButtonRadius);
    }
    painter->translate(button.left() + (button.width() - kButtonIcon) / 2.0,
                       button.top() + (button.height() - kButtonIcon) / 2.0);
    IconWidget::paintGlyph(*painter, QString(QChar(kDetailGlyph)),
                           hover ? colors.textPrimary : colors.infoText, kButtonIcon);
    painter->restore();
}

} // namespace scanresults
