#include "app/collapsiblesidebar.h"

#include "app/sidebarnavbutton.h"
#include "ui/common/keptroom.h"
#include "ui/common/theme.h"

#include <QBoxLayout>
#include <QEvent>
#include <QGraphicsDropShadowEffect>
#include <QIcon>
#include <QLabel>
#include <QPainter>
#include <QPropertyAnimation>
#include <QTimer>

using ui::common::ThemeColors;
using ui::common::ThemeType;

namespace {

constexpr int animationMs = 200;
constexpr int collapseDelayMs = 100;
constexpr int labelThreshold = 70; // above this width there is room for words
constexpr int shadowBlur = 20;
constexpr int logoSize = 28;
constexpr int headerMargin = 16;

QColor shadowColor()
{
    // Darker than the ground in both themes; a light shadow on a dark window would glow.
    const ThemeColors &colors = ThemeColors::current();
    QColor color =
        colors.type == ThemeType::dark ? colors.windowBackground.darker(400) : colors.textPrimary;
    color.setAlphaF(colors.type == ThemeType::dark ? 0.8 : 0.35);
    return color;
}

// Font size of the wordmark, smaller than asked for where it would not fit the open sidebar.
int wordmarkPx(QFont font, int room)
{
    int px = ThemeColors::current().fontPx(18);
    font.setWeight(QFont::DemiBold);
    do {
        font.setPixelSize(px);
    } while (QFontMetrics(font).horizontalAdvance(QStringLiteral("Morvane")) > room && --px > 1);
    return px;
}

void keepHeightWhenHidden(QWidget *widget)
{
    ui::common::keepRoomWhenHidden(widget);
    QSizePolicy policy = widget->sizePolicy();
    policy.setHorizontalPolicy(QSizePolicy::Ignored);
    widget->setSizePolicy(policy);
}

} // namespace

CollapsibleSidebar::CollapsibleSidebar(QWidget *parent)
    : QWidget(parent)
    , m_layout(new QVBoxLayout(this))
    , m_animation(new QPropertyAnimation(this, QByteArrayLiteral("currentWidth"), this))
    , m_collapseTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("CollapsibleSidebar"));
    // The application's buttons have a least width and a padding of their own.
    setStyleSheet(QStringLiteral("SidebarNavButton { min-width: 0; min-height: 0; padding: 0; "
                                 "border: none; background: transparent; }"));
    m_layout->setContentsMargins(0, 12, 0, 12);
    m_layout->setSpacing(0);

    m_animation->setDuration(animationMs);
    m_animation->setEasingCurve(QEasingCurve::OutCubic);
    m_collapseTimer->setSingleShot(true);
    m_collapseTimer->setInterval(collapseDelayMs);
    connect(m_collapseTimer, &QTimer::timeout, this, &CollapsibleSidebar::collapse);

    buildHeader();
    setCurrentWidth(collapsedWidth);
    if (parent) {
        setFixedHeight(parent->height());
        parent->installEventFilter(this);
    }
}

void CollapsibleSidebar::buildHeader()
{
    auto *row = new QHBoxLayout;
    row->setContentsMargins((collapsedWidth - logoSize) / 2, 0, 0, 0);
    row->setSpacing(8);

    auto *logo = new QLabel(this);
    logo->setObjectName(QStringLiteral("SidebarLogo"));
    logo->setPixmap(QIcon(QStringLiteral(":/img/logo.png")).pixmap(logoSize, logoSize));
    logo->setFixedSize(logoSize, logoSize);
    row->addWidget(logo);

    const ThemeColors &colors = ThemeColors::current();
    m_wordmark = new QLabel(this);
    m_wordmark->setObjectName(QStringLiteral("SidebarWordmark"));
    m_wordmark->setTextFormat(Qt::RichText);
    m_wordmark->setText(
        QStringLiteral("Mor<span style=\"color:%1\">vane</span>").arg(colors.accent.name()));
    m_wordmark->setStyleSheet(
        QStringLiteral("color: %1; font-size: %2px; font-weight: 600; background: transparent;")
            .arg(colors.textPrimary.name())
            .arg(wordmarkPx(m_wordmark->font(), expandedWidth - collapsedWidth)));
    keepHeightWhenHidden(m_wordmark);
    row->addWidget(m_wordmark, 1);
    m_layout->addLayout(row);
}

void CollapsibleSidebar::addSectionHeader(const QString &title, bool emphasized)
{
    const ThemeColors &colors = ThemeColors::current();
    auto *header = new QLabel(title, this);
    header->setObjectName(QStringLiteral("SidebarSectionHeader"));
    header->setStyleSheet(QStringLiteral("color: %1; font-size: %2px; background: transparent;")
                              .arg((emphasized ? colors.infoText : colors.textMuted).name())
                              .arg(colors.fontPx(12)));
    header->setContentsMargins(headerMargin, 12, 0, 4);
    // The entries below keep their place when the words go, so nothing moves under the mouse.
    keepHeightWhenHidden(header);
    m_headers.append(header);
    m_layout->addWidget(header);
    syncChildStates();
}

void CollapsibleSidebar::addButton(SidebarNavButton *button)
{
    m_buttons.append(button);
    m_layout->addWidget(button);
    syncChildStates();
}

void CollapsibleSidebar::addClosingStretch()
{
    m_layout->addStretch(1);
}

void CollapsibleSidebar::setCurrentWidth(int width)
{
    m_currentWidth = width;
    setFixedWidth(width);
    syncChildStates();
}

void CollapsibleSidebar::syncChildStates()
{
    const bool words = m_currentWidth > labelThreshold;
    m_wordmark->setVisible(words);
    for (QLabel *header : qAsConst(m_headers))
        header->setVisible(words);
    for (SidebarNavButton *button : qAsConst(m_buttons))
        button->setCollapsed(!words);
}

void CollapsibleSidebar::expand()
{
    setShadow(true);
    animateWidth(expandedWidth);
}

void CollapsibleSidebar::collapse()
{
    setShadow(false);
    animateWidth(collapsedWidth);
}

void CollapsibleSidebar::animateWidth(int target)
{
    m_animation->stop();
    m_animation->setStartValue(m_currentWidth);
    m_animation->setEndValue(target);
    m_animation->start();
}

void CollapsibleSidebar::setPinned(bool pinned)
{
    if (m_pinned == pinned)
        return;
    m_pinned = pinned;
    m_collapseTimer->stop();
    m_animation->stop();
    setShadow(false);
    setCurrentWidth(pinned ? expandedWidth : collapsedWidth);
}

void CollapsibleSidebar::setShadow(bool visible)
{
    if (!visible) {
        setGraphicsEffect(nullptr);
        return;
    }
    if (graphicsEffect())
        return;
    auto *shadow = new QGraphicsDropShadowEffect(this);
    shadow->setBlurRadius(shadowBlur);
    shadow->setOffset(0, 0);
    shadow->setColor(shadowColor());
    setGraphicsEffect(shadow);
}

void CollapsibleSidebar::enterEvent(QEvent *event)
{
    QWidget::enterEvent(event);
    if (m_pinned)
        return;
    m_collapseTimer->stop();
    expand();
}

void CollapsibleSidebar::leaveEvent(QEvent *event)
{
    QWidget::leaveEvent(event);
    if (!m_pinned)
        m_collapseTimer->start();
}

void CollapsibleSidebar::paintEvent(QPaintEvent *)
{
    const ThemeColors &colors = ThemeColors::current();
    QPainter painter(this);
    painter.fillRect(rect(), colors.surface);
    painter.fillRect(QRect(width() - 1, 0, 1, height()), colors.border);
}

bool CollapsibleSidebar::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parent() && event->type() == QEvent::Resize)
        setFixedHeight(parentWidget()->height());
    return QWidget::eventFilter(watched, event);
}
