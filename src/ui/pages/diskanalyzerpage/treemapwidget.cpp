#include "ui/pages/diskanalyzerpage/treemapwidget.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/textfont.h"
#include "ui/common/theme.h"
#include "ui/common/utils/formatutils.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"
#include "ui/pages/diskanalyzerpage/treemaplayout.h"

#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>
#include <QWheelEvent>

using diskanalyzer::TreemapItem;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kGap = 2; ///< Between blocks.
constexpr int kRadius = 4;
constexpr int kPadding = 6;
constexpr int kLabelPx = 12;
constexpr int kMinLabelWidth = 36;
const QSize kHint(360, 220);
const QSize kMinimum(160, 96);

QFont labelFont(bool semibold)
{
    return ui::common::textFont(kLabelPx, semibold ? QFont::DemiBold : QFont::Normal);
}

} // namespace

TreemapWidget::TreemapWidget(QWidget *parent)
    : QWidget(parent)
{
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setAccessibleName(tr("目录空间图"));
}

QSize TreemapWidget::sizeHint() const
{
    return kHint;
}

QSize TreemapWidget::minimumSizeHint() const
{
    return kMinimum;
}

void TreemapWidget::setItems(const QVector<TreemapItem> &items)
{
    m_items = items;
    m_current = items.isEmpty() ? -1 : 0;
    m_hovered = -1;
    m_pressed = -1;
    arrangeBlocks();
    setHovered(blockAt(mapFromGlobal(QCursor::pos())));
}

void TreemapWidget::arrangeBlocks()
{
    QVector<double> sizes;
    sizes.reserve(m_items.size());
    for (const TreemapItem &item : m_items)
        sizes.append(double(item.size));
    m_rects = diskanalyzer::squarify(sizes, rect());
    update();
}

void TreemapWidget::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    arrangeBlocks();
}

int TreemapWidget::blockAt(const QPointF &position) const
{
    for (int i = 0; i < m_rects.size(); ++i) {
        if (m_rects.at(i).contains(position))
            return i;
    }
    return -1;
}

void TreemapWidget::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int i = 0; i < m_rects.size(); ++i) {
        if (!m_rects.at(i).isEmpty())
            paintBlock(&painter, i);
    }
}

void TreemapWidget::paintBlock(QPainter *painter, int index) const
{
    const ThemeColors &colors = ThemeColors::current();
    const TreemapItem &item = m_items.at(index);
    const QRectF whole = m_rects.at(index);
    // Both shrink with the block, or the smallest ones would be dots.
    const qreal side = qMin(whole.width(), whole.height());
    const qreal gap = qMin<qreal>(kGap, side / 8);
    const qreal radius = qMin<qreal>(kRadius, side / 8);
    const QRectF block = whole.adjusted(gap / 2, gap / 2, -gap / 2, -gap / 2);
    const QColor ground = diskanalyzer::treemapColor(item, colors);
    const bool isCurrent = hasFocus() && index == m_current;
    if (isCurrent || index == m_hovered)
        painter->setPen(QPen(isCurrent ? colors.textPrimary : colors.accentHover, 2));
    else
        painter->setPen(QPen(colors.border, 1));
    painter->setBrush(ground);
    painter->drawRoundedRect(block.adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);

    const QRectF text = block.adjusted(kPadding, kPadding / 2.0, -kPadding, -kPadding / 2.0);
    const int line = metrics::lineHeight(kLabelPx);
    if (text.width() < kMinLabelWidth || text.height() < line)
        return;
    painter->setPen(diskanalyzer::treemapInk(ground, colors));
    const auto drawLine = [&](const QString &words, bool semibold, qreal top) {
        const QFont font = labelFont(semibold);
        painter->setFont(font);
        painter->drawText(QRectF(text.left(), top, text.width(), line),
                          Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                          QFontMetrics(font).elidedText(words, Qt::ElideRight, int(text.width())));
    };
    drawLine(item.name, true, text.top());
    if (text.height() < 2 * line)
        return;
    const QString size = diskanalyzer::formatSize(item.size);
    const QString both = size + QStringLiteral(" · ") + diskanalyzer::percentText(item.percent);
    const bool bothFit = QFontMetrics(labelFont(false)).horizontalAdvance(both) <= text.width();
    drawLine(bothFit ? both : size, false, text.top() + line);
}

bool TreemapWidget::event(QEvent *event)
{
    if (event->type() != QEvent::ToolTip)
        return QWidget::event(event);
    auto *help = static_cast<QHelpEvent *>(event);
    const int index = blockAt(help->pos());
    if (index < 0)
        QToolTip::hideText();
    else
        QToolTip::showText(help->globalPos(),
                           ui::common::utils::plainTip(treemapToolTip(m_items.at(index))), this,
                           m_rects.at(index).toAlignedRect());
    return true;
}

void TreemapWidget::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    m_pressed = blockAt(event->localPos());
    setCurrent(m_pressed);
}

void TreemapWidget::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const int index = blockAt(event->localPos());
    if (index >= 0 && index == m_pressed)
        activate(index);
    m_pressed = -1;
}

void TreemapWidget::mouseMoveEvent(QMouseEvent *event)
{
    setHovered(blockAt(event->localPos()));
}

void TreemapWidget::wheelEvent(QWheelEvent *event)
{
    event->accept(); // At the end of the way, nothing around the picture is to scroll instead.
    const int turned = event->angleDelta().y();
    // Touch pads tell a turn in many small pieces; a level takes a whole step of a wheel.
    if ((turned > 0) != (m_turned > 0))
        m_turned = 0;
    m_turned += turned;
    if (qAbs(m_turned) < QWheelEvent::DefaultDeltasPerStep)
        return;
    const bool forward = m_turned > 0;
    m_turned = 0;
    if (!forward) {
        emit upRequested();
        return;
    }
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    activate(blockAt(event->position()));
#else
    activate(blockAt(event->posF()));
#endif
}

void TreemapWidget::leaveEvent(QEvent *event)
{
    setHovered(-1);
    QWidget::leaveEvent(event);
}

void TreemapWidget::setHovered(int index)
{
    if (m_hovered == index)
        return;
    m_hovered = index;
    const bool opens = index >= 0 && m_items.at(index).kind == TreemapItem::Directory;
    setCursor(opens ? Qt::PointingHandCursor : Qt::ArrowCursor);
    update();
}

void TreemapWidget::setCurrent(int index)
{
    if (index < 0 || m_current == index)
        return;
    m_current = index;
    setAccessibleDescription(treemapToolTip(m_items.at(index)));
    update();
}

void TreemapWidget::activate(int index)
{
    if (index >= 0 && m_items.at(index).kind == TreemapItem::Directory)
        emit directoryActivated(m_items.at(index).childRow);
}

void TreemapWidget::keyPressEvent(QKeyEvent *event)
{
    using diskanalyzer::Direction;
    const auto step = [this](Direction direction) {
        setCurrent(diskanalyzer::neighbour(m_rects, m_current, direction));
    };
    switch (event->key()) {
    case Qt::Key_Left:
        step(Direction::Left);
        break;
    case Qt::Key_Right:
        step(Direction::Right);
        break;
    case Qt::Key_Up:
        step(Direction::Up);
        break;
    case Qt::Key_Down:
        step(Direction::Down);
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
        activate(m_current);
        break;
    case Qt::Key_Backspace:
        emit upRequested();
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}

void TreemapWidget::focusInEvent(QFocusEvent *event)
{
    QWidget::focusInEvent(event);
    update();
}

void TreemapWidget::focusOutEvent(QFocusEvent *event)
{
    QWidget::focusOutEvent(event);
    update();
}
