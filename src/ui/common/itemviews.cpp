#include "ui/common/itemviews.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/utils/formatutils.h"

#include <QAbstractItemView>
#include <QHeaderView>
#include <QHelpEvent>
#include <QTableView>
#include <QToolTip>
#include <QTreeView>

namespace ui {
namespace common {

namespace {

void setUpHeader(QHeaderView *header)
{
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header->setHighlightSections(false);
    header->setFixedHeight(metrics::headerHeight());
    header->setTextElideMode(Qt::ElideRight);
}

void setUpView(QAbstractItemView *view)
{
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    view->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->setMouseTracking(true);
}

} // namespace

RowDelegate::RowDelegate(QAbstractItemView *view)
    : QStyledItemDelegate(view)
    , m_view(view)
    , m_viewport(view->viewport())
{
    view->viewport()->setMouseTracking(true);
    view->viewport()->installEventFilter(this);
}

void RowDelegate::setElideMode(int column, Qt::TextElideMode mode)
{
    m_elideModes.insert(column, mode);
}

void RowDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    const bool hovered = m_hovered.isValid() && m_hovered.row() == index.row() &&
                         m_hovered.parent() == index.parent();
    option->state.setFlag(QStyle::State_MouseOver, hovered);
    option->textElideMode = m_elideModes.value(index.column(), Qt::ElideRight);
}

bool RowDelegate::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_viewport) {
        if (event->type() == QEvent::MouseMove) {
            setHovered(m_view->indexAt(static_cast<QMouseEvent *>(event)->pos()));
        } else if (event->type() == QEvent::Leave) {
            // Comes also while the view is being destroyed, so the view is not to be asked here.
            m_hovered = QModelIndex();
            static_cast<QWidget *>(watched)->update();
        }
        return false;
    }
    // Editors of cells have the delegate as their filter, too.
    return QStyledItemDelegate::eventFilter(watched, event);
}

void RowDelegate::setHovered(const QModelIndex &index)
{
    const QModelIndex rowStart = index.sibling(index.row(), 0);
    if (m_hovered == rowStart)
        return;
    updateRow(m_hovered);
    m_hovered = rowStart;
    updateRow(m_hovered);
}

void RowDelegate::updateRow(const QModelIndex &index)
{
    if (!index.isValid())
        return;
    QWidget *viewport = m_view->viewport();
    const QRect cell = m_view->visualRect(index);
    viewport->update(0, cell.top(), viewport->width(), cell.height());
}

bool RowDelegate::helpEvent(QHelpEvent *event, QAbstractItemView *view,
                            const QStyleOptionViewItem &option, const QModelIndex &index)
{
    const bool ownTip = index.data(Qt::ToolTipRole).isValid();
    if (event->type() != QEvent::ToolTip || ownTip || !index.isValid())
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    const QRect cell = view->visualRect(index);
    const QString text = displayText(index.data(), view->locale());
    if (sizeHint(option, index).width() > cell.width())
        QToolTip::showText(event->globalPos(), utils::plainTip(text), view->viewport(), cell);
    else
        QToolTip::hideText();
    return true;
}

RowDelegate *setUpTable(QTableView *table)
{
    setUpView(table);
    setUpHeader(table->horizontalHeader());
    table->setShowGrid(false);
    table->setWordWrap(false);
    table->setTabKeyNavigation(false); // Tab leads out of it; the arrows move in it.
    table->setCornerButtonEnabled(false);
    table->verticalHeader()->hide();
    table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->verticalHeader()->setDefaultSectionSize(metrics::rowHeight());
    auto *delegate = new RowDelegate(table);
    table->setItemDelegate(delegate);
    return delegate;
}

void setUpTree(QTreeView *tree)
{
    setUpView(tree);
    setUpHeader(tree->header());
    tree->setUniformRowHeights(true);
    tree->setAllColumnsShowFocus(true);
    tree->setAnimated(false);
}

} // namespace common
} // namespace ui
