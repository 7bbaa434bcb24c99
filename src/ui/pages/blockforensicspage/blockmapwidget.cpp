#include "ui/pages/blockforensicspage/blockmapwidget.h"

#include "ui/common/theme.h"
#include "ui/pages/blockforensicspage/blockmaprules.h"
#include "ui/pages/blockforensicspage/forensicsrules.h"

#include <QJsonObject>
#include <QMouseEvent>
#include <QPainter>

using namespace blockforensics;
using ui::common::LegacyColors;

namespace {

constexpr int kRadius = 2;
constexpr int kDefaultWidth = 640;

/// A line of this width inside the cell's edge.
void outline(QPainter *painter, const QRect &cell, const QColor &color, int width)
{
    const qreal half = width / 2.0;
    painter->setPen(QPen(color, width));
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(QRectF(cell).adjusted(half, half, -half, -half), kRadius, kRadius);
}

} // namespace

BlockMapWidget::BlockMapWidget(QWidget *parent)
    : QWidget(parent)
{
    setMouseTracking(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void BlockMapWidget::setBlocks(const QJsonArray &blocks)
{
    m_blocks = blocks;
    m_colors.clear();
    m_colors.reserve(blocks.size());
    for (const QJsonValue &value : blocks)
        m_colors.append(
            statusLook(value.toObject().value(QLatin1String("status")).toString()).color);
    m_selectedIndex = -1;
    setHovered(-1);
    followWidth();
    update();
}

int BlockMapWidget::columns() const
{
    return columnsFor(width());
}

void BlockMapWidget::followWidth()
{
    setFixedHeight(heightFor(m_colors.size(), columns()));
}

QSize BlockMapWidget::sizeHint() const
{
    return QSize(kDefaultWidth, heightFor(m_colors.size(), columnsFor(kDefaultWidth)));
}

void BlockMapWidget::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (event->size().width() != event->oldSize().width())
        followWidth();
}

void BlockMapWidget::paintEvent(QPaintEvent *event)
{
    const int perRow = columns();
    const BlockRange range = blocksIn(event->rect(), perRow, m_colors.size());
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int index = range.first; index < range.end; ++index) {
        const QRect cell = cellRect(index, perRow);
        painter.setPen(Qt::NoPen);
        painter.setBrush(m_colors.at(index));
        painter.drawRoundedRect(cell, kRadius, kRadius);
        if (index == m_selectedIndex)
            outline(&painter, cell, LegacyColors::blockSelected(), 2);
        else if (index == m_hoveredIndex)
            outline(&painter, cell, LegacyColors::blockHovered(), 1);
    }
}

void BlockMapWidget::mousePressEvent(QMouseEvent *event)
{
    const int index = blockAt(event->pos(), columns(), m_colors.size());
    if (index < 0)
        return;
    updateCell(m_selectedIndex);
    m_selectedIndex = index;
    updateCell(index);
    if (m_clickCallback)
        m_clickCallback(index);
}

void BlockMapWidget::mouseMoveEvent(QMouseEvent *event)
{
    setHovered(blockAt(event->pos(), columns(), m_colors.size()));
}

void BlockMapWidget::leaveEvent(QEvent *event)
{
    setHovered(-1);
    QWidget::leaveEvent(event);
}

void BlockMapWidget::setHovered(int index)
{
    if (m_hoveredIndex == index)
        return;
    updateCell(m_hoveredIndex);
    m_hoveredIndex = index;
    updateCell(index);
    setToolTip(index < 0 ? QString() : blockToolTip(m_blocks.at(index).toObject()));
}

void BlockMapWidget::updateCell(int index)
{
    if (index >= 0)
        update(cellRect(index, columns()));
}
