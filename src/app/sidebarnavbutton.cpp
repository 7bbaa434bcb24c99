#include "app/sidebarnavbutton.h"

#include "ui/common/keyroles.h"
#include "ui/common/theme.h"

#include <QPainter>
#include <QPropertyAnimation>

using ui::common::IconWidget;
using ui::common::ThemeColors;

namespace {

constexpr int animationMs = 150;
constexpr int sideMargin = 8; // between the sidebar's edge and the background
constexpr int cornerRadius = 8;
constexpr int iconColumn = 60; // the collapsed sidebar's width: the icon stands still in it
constexpr int baseHeight = 40;
constexpr int textPadding = 6; // above and below the label
constexpr int iconBase = 16;

} // namespace

SidebarNavButton::SidebarNavButton(const QString &label, IconWidget::IconType icon, QWidget *parent)
    : QPushButton(label, parent)
    , m_icon(icon)
    , m_animation(new QPropertyAnimation(this, QByteArrayLiteral("bgProgress"), this))
{
    setFlat(true);
    ui::common::setTabStop(this);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    m_animation->setDuration(animationMs);
    m_animation->setEasingCurve(QEasingCurve::OutCubic);
}

void SidebarNavButton::setBgProgress(double progress)
{
    m_bgProgress = qBound(0.0, progress, 1.0);
    update();
}

void SidebarNavButton::animateTo(double target)
{
    m_animation->stop();
    m_animation->setStartValue(m_bgProgress);
    m_animation->setEndValue(target);
    m_animation->start();
}

void SidebarNavButton::setActive(bool active)
{
    if (m_active == active)
        return;
    m_active = active;
    animateTo(active || underMouse() ? 1.0 : 0.0);
    update();
}

void SidebarNavButton::setCollapsed(bool collapsed)
{
    if (m_collapsed == collapsed)
        return;
    m_collapsed = collapsed;
    update();
}

QRect SidebarNavButton::labelRect() const
{
    return rect().adjusted(iconColumn - sideMargin, 0, -sideMargin - 4, 0);
}

QFont SidebarNavButton::labelFont() const
{
    QFont result = font();
    result.setPixelSize(ThemeColors::current().fontPx(13));
    result.setWeight(m_active ? QFont::DemiBold : QFont::Normal);
    return result;
}

QSize SidebarNavButton::sizeHint() const
{
    const QFontMetrics metrics(labelFont());
    return QSize(iconColumn, qMax(baseHeight, metrics.height() + 2 * textPadding));
}

QSize SidebarNavButton::minimumSizeHint() const
{
    return sizeHint();
}

void SidebarNavButton::enterEvent(QEvent *event)
{
    QPushButton::enterEvent(event);
    animateTo(1.0);
}

void SidebarNavButton::leaveEvent(QEvent *event)
{
    QPushButton::leaveEvent(event);
    animateTo(m_active ? 1.0 : 0.0);
}

void SidebarNavButton::paintEvent(QPaintEvent *)
{
    const ThemeColors &colors = ThemeColors::current();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);

    QColor background = m_active ? colors.activeNavBackground : colors.hoverBackground;
    if (isDown())
        background = colors.selectionBackground;
    background.setAlphaF(background.alphaF() * m_bgProgress);
    painter.setPen(Qt::NoPen);
    painter.setBrush(background);
    painter.drawRoundedRect(rect().adjusted(sideMargin, 2, -sideMargin, -2), cornerRadius,
                            cornerRadius);

    if (hasFocus()) {
        painter.setPen(QPen(colors.accent, 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(rect().adjusted(sideMargin + 1, 3, -sideMargin - 1, -3),
                                cornerRadius, cornerRadius);
    }

    // The accent itself is too dim for text on the active ground of the dark theme.
    QColor foreground = colors.textMuted;
    if (m_active)
        foreground = colors.infoText;
    else if (m_bgProgress > 0.5)
        foreground = colors.textPrimary;

    const int iconSize = colors.fontPx(iconBase);
    painter.save();
    painter.translate((iconColumn - iconSize) / 2.0, (height() - iconSize) / 2.0);
    IconWidget::paintIcon(painter, m_icon, foreground, iconSize);
    painter.restore();

    if (m_collapsed)
        return;
    const QRect area = labelRect();
    painter.setFont(labelFont());
    painter.setPen(m_active ? colors.infoText : colors.textPrimary);
    painter.drawText(area, Qt::AlignVCenter | Qt::AlignLeft,
                     painter.fontMetrics().elidedText(text(), Qt::ElideRight, area.width()));
}
