#include "ui/pages/scanresultspage/selectallheaderview.h"

#include "ui/common/iconwidget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>

using ui::common::IconWidget;
using ui::common::ThemeColors;

namespace scanresults {

namespace {

constexpr int kCheckSize = 18;
constexpr int kFilterIcon = 12;
constexpr int kIconMargin = 8;

} // namespace

SelectAllHeaderView::SelectAllHeaderView(QWidget *parent)
    : QHeaderView(Qt::Horizontal, parent)
{
    setObjectName(QStringLiteral("ScanResultsHeader"));
    setSectionsClickable(true);
    setHighlightSections(false);
    setFixedHeight(ui::common::metrics::headerHeight());
    setTextElideMode(Qt::ElideRight);
    setMouseTracking(true);
    // Only the rows in view are measured for columns that fit their contents.
    setResizeContentsPrecision(0);
}

void SelectAllHeaderView::setCheckState(Qt::CheckState state)
{
    if (m_checkState == state)
        return;
    m_checkState = state;
    viewport()->update();
}

void SelectAllHeaderView::setTypeFilter(const QString &label, bool active)
{
    m_typeLabel = label;
    m_typeFilterActive = active;
    viewport()->update();
}

bool SelectAllHeaderView::isOwnSection(int section) const
{
    return section == ScanResultsModel::CheckColumn || section == ScanResultsModel::TypeColumn ||
           section == ScanResultsModel::DetailColumn;
}

bool SelectAllHeaderView::viewportEvent(QEvent *event)
{
    if (event->type() != QEvent::ToolTip)
        return QHeaderView::viewportEvent(event);
    const auto *help = static_cast<QHelpEvent *>(event);
    const int section = logicalIndexAt(help->pos());
    if (section == ScanResultsModel::CheckColumn)
        QToolTip::showText(help->globalPos(), tr("全选/取消全选（仅当前列表）"), viewport());
    else if (section == ScanResultsModel::TypeColumn)
        QToolTip::showText(help->globalPos(), tr("按类型筛选: %1").arg(m_typeLabel), viewport());
    else
        QToolTip::hideText();
    return true;
}

void SelectAllHeaderView::mousePressEvent(QMouseEvent *event)
{
    const int section = logicalIndexAt(event->pos());
    // Near a border the press starts to resize the neighbour.
    const bool resizing = cursor().shape() == Qt::SplitHCursor;
    m_pressed =
        !resizing && event->button() == Qt::LeftButton && isOwnSection(section) ? section : -1;
    if (m_pressed < 0)
        QHeaderView::mousePressEvent(event);
}

void SelectAllHeaderView::mouseReleaseEvent(QMouseEvent *event)
{
    if (m_pressed < 0) {
        QHeaderView::mouseReleaseEvent(event);
        return;
    }
    const int section = m_pressed;
    m_pressed = -1;
    if (logicalIndexAt(event->pos()) != section)
        return;
    if (section == ScanResultsModel::CheckColumn)
        emit toggleAllRequested();
    else if (section == ScanResultsModel::TypeColumn)
        emit typeMenuRequested(
            viewport()->mapToGlobal(QPoint(sectionViewportPosition(section), height())));
}

void SelectAllHeaderView::paintSection(QPainter *painter, const QRect &rect, int section) const
{
    painter->save();
    QHeaderView::paintSection(painter, rect, section);
    painter->restore();
    if (section == ScanResultsModel::CheckColumn) {
        QStyleOptionViewItem mark;
        mark.initFrom(this);
        mark.rect = QStyle::alignedRect(layoutDirection(), Qt::AlignCenter,
                                        QSize(kCheckSize, kCheckSize), rect);
        mark.features |= QStyleOptionViewItem::HasCheckIndicator;
        mark.state = QStyle::State_Enabled;
        mark.state |=
            m_checkState == Qt::Checked
                ? QStyle::State_On
                : (m_checkState == Qt::Unchecked ? QStyle::State_Off : QStyle::State_NoChange);
        style()->drawPrimitive(QStyle::PE_IndicatorItemViewItemCheck, &mark, painter, this);
    } else if (section == ScanResultsModel::TypeColumn) {
        const ThemeColors &colors = ThemeColors::current();
        painter->save();
        painter->translate(rect.right() - kFilterIcon - kIconMargin,
                           rect.top() + (rect.height() - kFilterIcon) / 2.0);
        IconWidget::paintIcon(*painter, IconWidget::Filter,
                              m_typeFilterActive ? colors.infoText : colors.textMuted, kFilterIcon);
        painter->restore();
    }
}

} // namespace scanresults
