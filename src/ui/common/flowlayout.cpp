#include "ui/common/flowlayout.h"

#include <QStyle>
#include <QWidget>

namespace ui {
namespace common {

FlowLayout::FlowLayout(QWidget *parent, int margin, int hSpacing, int vSpacing)
    : QLayout(parent)
    , m_hSpacing(hSpacing)
    , m_vSpacing(vSpacing)
{
    if (margin >= 0)
        setContentsMargins(margin, margin, margin, margin);
}

FlowLayout::~FlowLayout()
{
    qDeleteAll(m_items);
}

void FlowLayout::addItem(QLayoutItem *item)
{
    m_items.append(item);
}

int FlowLayout::count() const
{
    return m_items.size();
}

QLayoutItem *FlowLayout::itemAt(int index) const
{
    return m_items.value(index, nullptr);
}

QLayoutItem *FlowLayout::takeAt(int index)
{
    return index >= 0 && index < m_items.size() ? m_items.takeAt(index) : nullptr;
}

Qt::Orientations FlowLayout::expandingDirections() const
{
    return Qt::Orientations();
}

bool FlowLayout::hasHeightForWidth() const
{
    return true;
}

int FlowLayout::heightForWidth(int width) const
{
    return arrange(QRect(0, 0, width, 0), false);
}

QSize FlowLayout::minimumSize() const
{
    QSize size;
    for (const QLayoutItem *item : m_items)
        size = size.expandedTo(item->minimumSize());
    const QMargins margins = contentsMargins();
    return size + QSize(margins.left() + margins.right(), margins.top() + margins.bottom());
}

QSize FlowLayout::sizeHint() const
{
    return minimumSize();
}

void FlowLayout::setGeometry(const QRect &rect)
{
    QLayout::setGeometry(rect);
    arrange(rect, true);
}

int FlowLayout::arrange(const QRect &rect, bool apply) const
{
    const QMargins margins = contentsMargins();
    const QRect area = rect.marginsRemoved(margins);
    const int hSpacing = qMax(0, horizontalSpacing());
    const int vSpacing = qMax(0, verticalSpacing());
    int x = area.x();
    int y = area.y();
    int lineHeight = 0;
    for (QLayoutItem *item : m_items) {
        if (item->isEmpty())
            continue;
        const QSize size = item->sizeHint();
        // The first item of a line stays on it even where it is too wide.
        if (lineHeight > 0 && x + size.width() > area.x() + area.width()) {
            x = area.x();
            y += lineHeight + vSpacing;
            lineHeight = 0;
        }
        if (apply)
            item->setGeometry(QRect(QPoint(x, y), size));
        x += size.width() + hSpacing;
        lineHeight = qMax(lineHeight, size.height());
    }
    return y + lineHeight - rect.y() + margins.bottom();
}

int FlowLayout::horizontalSpacing() const
{
    return m_hSpacing >= 0 ? m_hSpacing : styleSpacing(QStyle::PM_LayoutHorizontalSpacing);
}

int FlowLayout::verticalSpacing() const
{
    return m_vSpacing >= 0 ? m_vSpacing : styleSpacing(QStyle::PM_LayoutVerticalSpacing);
}

int FlowLayout::styleSpacing(QStyle::PixelMetric metric) const
{
    const QObject *owner = parent();
    if (!owner)
        return -1;
    if (owner->isWidgetType()) {
        const auto *widget = static_cast<const QWidget *>(owner);
        return widget->style()->pixelMetric(metric, nullptr, widget);
    }
    return static_cast<const QLayout *>(owner)->spacing();
}

} // namespace common
} // namespace ui
