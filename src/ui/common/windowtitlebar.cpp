#include "ui/common/windowtitlebar.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/keptroom.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/resources.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QToolButton>

namespace ui {
namespace common {

namespace {

constexpr int kMinHeight = 40;
constexpr int kLeftMargin = 16;
constexpr int kImageSize = 16;

QToolButton *controlButton(QWidget *bar, const QString &name, const QString &image,
                           const QString &tip)
{
    auto *button = new QToolButton(bar);
    button->setObjectName(name);
    button->setIcon(QIcon(image));
    button->setIconSize(QSize(kImageSize, kImageSize));
    button->setToolTip(tip);
    button->setAccessibleName(tip);
    button->setFocusPolicy(Qt::NoFocus);
    return button;
}

} // namespace

WindowTitleBar::WindowTitleBar(QWidget *parent, ButtonMode mode)
    : QWidget(parent)
    , m_title(new ElidedLabel(this))
{
    initResources();
    setObjectName(QStringLiteral("CustomTitleBar"));
    setAttribute(Qt::WA_StyledBackground);
    setFixedHeight(qMax(kMinHeight, metrics::lineHeight(13) + 16));
    m_title->setObjectName(QStringLiteral("CustomTitleLabel"));
    m_title->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_minimize = controlButton(this, QStringLiteral("WinCtlMin"), QStringLiteral(":/img/min.png"),
                               tr("最小化"));
    m_zoom = controlButton(this, QStringLiteral("WinCtlZoom"), QStringLiteral(":/img/zoom.png"),
                           tr("最大化"));
    m_close = controlButton(this, QStringLiteral("WinCtlClose"), QStringLiteral(":/img/close.png"),
                            tr("关闭"));
    auto *row = new QHBoxLayout(this);
    const int left = mode == ButtonMode::CloseOnly ? metrics::kDialogPadding : kLeftMargin;
    row->setContentsMargins(left, 0, 8, 0);
    row->setSpacing(4);
    row->addWidget(m_title, 1);
    row->addWidget(m_minimize);
    row->addWidget(m_zoom);
    row->addWidget(m_close);
    connect(m_minimize, &QToolButton::clicked, this, &WindowTitleBar::requestMinimize);
    connect(m_zoom, &QToolButton::clicked, this, &WindowTitleBar::requestToggleMaximize);
    connect(m_close, &QToolButton::clicked, this, &WindowTitleBar::requestClose);
    setButtonMode(mode);
}

void WindowTitleBar::setTitle(const QString &title)
{
    m_title->setText(title);
}

void WindowTitleBar::setTitleVisible(bool visible)
{
    // The label keeps its room, which pushes the buttons to the right.
    keepRoomWhenHidden(m_title);
    m_title->setVisible(visible);
}

void WindowTitleBar::setMaximized(bool maximized)
{
    const QString tip = maximized ? tr("还原") : tr("最大化");
    m_zoom->setToolTip(tip);
    m_zoom->setAccessibleName(tip);
}

void WindowTitleBar::setButtonMode(ButtonMode mode)
{
    m_minimize->setVisible(mode != ButtonMode::CloseOnly);
    m_zoom->setVisible(mode == ButtonMode::MinMaxClose);
}

bool WindowTitleBar::isControlButtonAt(const QPoint &position) const
{
    const QToolButton *const buttons[] = {m_minimize, m_zoom, m_close};
    for (const QToolButton *button : buttons) {
        if (!button->isHidden() && button->geometry().contains(position))
            return true;
    }
    return false;
}

} // namespace common
} // namespace ui
