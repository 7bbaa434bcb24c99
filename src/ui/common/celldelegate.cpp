#include "ui/common/celldelegate.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/pillpainter.h"
#include "ui/common/textfont.h"
#include "ui/common/theme.h"

#include <QAbstractItemView>
#include <QMouseEvent>
#include <QPainter>
#include <QTableView>

namespace ui {
namespace common {

namespace {

constexpr int kCellPadding = 12; ///< As in the style sheet of the views' items.
constexpr int kColumnSlack = 6;  ///< For what headers add, and for roundings of the font.
constexpr int kButtonPadding = 8;
constexpr int kButtonGap = 4;
constexpr int kButtonRadius = 8;
constexpr int kBodyPx = 13;

int buttonWidth(const QString &text)
{
    return QFontMetrics(textFont(kBodyPx)).horizontalAdvance(text) + 2 * kButtonPadding;
}

/// The texts start where those of other cells do.
QRect buttonRect(const QRect &cell, const QStringList &actions, int action)
{
    const int height = qMin(metrics::rowControlHeight(), cell.height() - 4);
    int left = cell.left() + kCellPadding - kButtonPadding;
    for (int before = 0; before < action; ++before)
        left += buttonWidth(actions.at(before)) + kButtonGap;
    return QRect(left, cell.top() + (cell.height() - height) / 2, buttonWidth(actions.at(action)),
                 height);
}

bool hasOwnPainting(const QModelIndex &index)
{
    return index.data(PillRole).isValid() || index.data(InkRole).isValid() ||
           index.data(ActionsRole).isValid();
}

} // namespace

CellDelegate::CellDelegate(QAbstractItemView *view)
    : RowDelegate(view)
    , m_table(view)
    , m_watched(view->viewport())
{}

int CellDelegate::textColumnWidth(const QString &text)
{
    return QFontMetrics(textFont(kBodyPx)).horizontalAdvance(text) + 2 * kCellPadding +
           kColumnSlack;
}

int CellDelegate::actionColumnWidth(const QStringList &actions)
{
    int width = 2 * (kCellPadding - kButtonPadding);
    for (const QString &action : actions)
        width += buttonWidth(action) + kButtonGap;
    return width;
}

void CellDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    RowDelegate::initStyleOption(option, index);
    if (hasOwnPainting(index))
        option->text.clear();
}

QSize CellDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QSize size = RowDelegate::sizeHint(option, index);
    const QString text = index.data().toString();
    if (index.data(ActionsRole).isValid())
        size.setWidth(actionColumnWidth(index.data(ActionsRole).toStringList()));
    else if (index.data(PillRole).isValid())
        size.setWidth(pillSize(text).width() + 2 * kCellPadding);
    else if (index.data(InkRole).isValid())
        size.setWidth(textColumnWidth(text) - kColumnSlack);
    return size;
}

void CellDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                         const QModelIndex &index) const
{
    RowDelegate::paint(painter, option, index);
    const QVariant pill = index.data(PillRole);
    if (index.data(ActionsRole).isValid())
        paintActions(painter, option, index);
    else if (pill.isValid())
        paintPill(painter, option.rect.adjusted(kCellPadding, 0, -kCellPadding, -1),
                  index.data().toString(), static_cast<StatusPill::Type>(pill.toInt()));
    else if (index.data(InkRole).isValid())
        paintText(painter, option, index);
}

void CellDelegate::paintText(QPainter *painter, const QStyleOptionViewItem &option,
                             const QModelIndex &index) const
{
    // The style sheet's colour of items would win over the model's.
    const QRect area = option.rect.adjusted(kCellPadding, 0, -kCellPadding, -1);
    const QVariant alignment = index.data(Qt::TextAlignmentRole);
    painter->save();
    painter->setFont(textFont(kBodyPx));
    painter->setPen(index.data(InkRole).value<QColor>());
    painter->drawText(
        area, alignment.isValid() ? alignment.toInt() : int(Qt::AlignLeft | Qt::AlignVCenter),
        painter->fontMetrics().elidedText(index.data().toString(), Qt::ElideRight, area.width()));
    painter->restore();
}

void CellDelegate::paintActions(QPainter *painter, const QStyleOptionViewItem &option,
                                const QModelIndex &index) const
{
    const ThemeColors &colors = ThemeColors::current();
    const QStringList actions = index.data(ActionsRole).toStringList();
    const QVariant danger = index.data(DangerActionRole);
    const QRect cell = option.rect.adjusted(0, 0, 0, -1);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setFont(textFont(kBodyPx));
    for (int action = 0; action < actions.size(); ++action) {
        const bool isDanger = danger.isValid() && danger.toInt() == action;
        const Place here{index, action};
        const QRect rect = buttonRect(cell, actions, action);
        QColor ground = colors.surface;
        QColor ink = isDanger ? colors.dangerText : colors.infoText;
        if (m_hoveredAction == here) {
            ground =
                m_pressedAction == here ? colors.selectionBackground : colors.activeNavBackground;
            if (isDanger) {
                ground = colors.dangerText;
                ink = colors.surface;
            }
            painter->setPen(Qt::NoPen);
            painter->setBrush(ground);
            painter->drawRoundedRect(rect, kButtonRadius, kButtonRadius);
        }
        painter->setPen(isDanger ? ink : colors.readable(ink, ground));
        painter->drawText(rect, Qt::AlignCenter, actions.at(action));
    }
    painter->restore();
}

QRect CellDelegate::actionRect(const QModelIndex &index, int action) const
{
    const QStringList actions = index.data(ActionsRole).toStringList();
    if (action < 0 || action >= actions.size())
        return QRect();
    return buttonRect(m_table->visualRect(index).adjusted(0, 0, 0, -1), actions, action);
}

CellDelegate::Place CellDelegate::placeAt(const QPoint &position) const
{
    const QModelIndex index = m_table->indexAt(position);
    const int count = index.data(ActionsRole).toStringList().size();
    for (int action = 0; action < count; ++action) {
        if (actionRect(index, action).contains(position))
            return Place{index, action};
    }
    return Place();
}

bool CellDelegate::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_watched)
        return RowDelegate::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::MouseMove:
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
        watchMouse(static_cast<QMouseEvent *>(event));
        break;
    case QEvent::Leave:
        // Comes also while the view is being destroyed, so the view is not to be asked here.
        m_hoveredAction = Place();
        m_pressedAction = Place();
        static_cast<QWidget *>(watched)->unsetCursor();
        break;
    default:
        break;
    }
    const bool handled = RowDelegate::eventFilter(watched, event);
    // Two quick clicks on a button are clicks on that button, not a double click on the row.
    const bool onButton =
        event->type() == QEvent::MouseButtonDblClick && m_pressedAction.index.isValid();
    return handled || onButton;
}

void CellDelegate::watchMouse(QMouseEvent *event)
{
    const Place place = placeAt(event->pos());
    setPlace(&m_hoveredAction, place);
    if (place.index.isValid())
        m_table->viewport()->setCursor(Qt::PointingHandCursor);
    else
        m_table->viewport()->unsetCursor();
    if (event->button() != Qt::LeftButton)
        return;
    if (event->type() != QEvent::MouseButtonRelease) {
        setPlace(&m_pressedAction, place);
        return;
    }
    const bool clicked = place.index.isValid() && place == m_pressedAction;
    setPlace(&m_pressedAction, Place());
    if (!clicked)
        return;
    QMetaObject::invokeMethod(
        this,
        [this, place] {
            if (place.index.isValid())
                emit actionTriggered(place.index, place.action);
        },
        Qt::QueuedConnection);
}

void CellDelegate::setPlace(Place *which, const Place &place)
{
    if (*which == place)
        return;
    updateCell(which->index);
    *which = place;
    updateCell(which->index);
}

void CellDelegate::updateCell(const QModelIndex &index)
{
    if (index.isValid())
        m_table->viewport()->update(m_table->visualRect(index));
}

CellDelegate *setUpCellTable(QTableView *table)
{
    delete setUpTable(table);
    auto *delegate = new CellDelegate(table);
    table->setItemDelegate(delegate);
    return delegate;
}

} // namespace common
} // namespace ui
