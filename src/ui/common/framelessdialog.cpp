#include "ui/common/framelessdialog.h"

#include "ui/common/dialogscrim.h"
#include "ui/common/framelesswindowcontroller.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/windowtitlebar.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QPushButton>
#include <QShowEvent>
#include <QVBoxLayout>

namespace ui {
namespace common {

namespace {

constexpr int kMinWidth = 420;
constexpr int kMaxWidth = 680;
constexpr int kDefaultWidth = 460;
constexpr int kBelowTitleBar = 8;

} // namespace

FramelessDialog::FramelessDialog(QWidget *parent, Sizing sizing)
    : QDialog(parent)
    , m_sizing(sizing)
    , m_customChrome(FramelessWindowController::shouldUseCustomChrome())
    , m_width(0)
    , m_titleBar(nullptr)
    , m_padded(nullptr)
    , m_content(nullptr)
    , m_buttons(nullptr)
{
    setModal(true);
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    if (m_customChrome)
        setWindowFlag(Qt::FramelessWindowHint);
    buildFrame();
    setContentWidth(kDefaultWidth);
    setStyleSheet(buildWindowChromeStyleSheet(ThemeColors::current().type));
    new FramelessWindowController(this, m_titleBar, m_customChrome, sizing == Sizing::Resizable,
                                  this);
}

void FramelessDialog::buildFrame()
{
    auto *frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("DialogFrame"));
    frame->setProperty("systemFrame", !m_customChrome);
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(frame);

    m_titleBar = new WindowTitleBar(frame, WindowTitleBar::ButtonMode::CloseOnly);
    auto *column = new QVBoxLayout(frame);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(m_titleBar);

    m_padded = new QVBoxLayout;
    const int padding = metrics::kDialogPadding;
    m_padded->setContentsMargins(padding, m_customChrome ? kBelowTitleBar : padding, padding,
                                 padding);
    m_padded->setSpacing(metrics::kGroupGap);
    column->addLayout(m_padded, 1);

    m_content = new QVBoxLayout;
    m_content->setSpacing(metrics::kCardGap);
    m_padded->addLayout(m_content, 1);
}

QHBoxLayout *FramelessDialog::buttonRow()
{
    if (!m_buttons) {
        m_buttons = new QHBoxLayout;
        m_buttons->setSpacing(metrics::kButtonGap);
        m_buttons->addStretch(1);
        m_padded->addLayout(m_buttons);
    }
    return m_buttons;
}

void FramelessDialog::setContentWidth(int width)
{
    const int base = qBound(kMinWidth, width, kMaxWidth);
    m_width = qBound(kMinWidth, ThemeColors::current().fontPx(base), kMaxWidth);
}

QPushButton *FramelessDialog::addButton(const QString &text, const QString &role)
{
    auto *button = new QPushButton(text, this);
    setButtonRole(button, role);
    // The button with the focus is the one that Enter takes.
    button->setAutoDefault(true);
    buttonRow()->addWidget(button);
    if (role == QLatin1String("primary"))
        button->setDefault(true);
    return button;
}

void FramelessDialog::addToButtonRow(QWidget *widget)
{
    buttonRow()->insertWidget(0, widget);
}

void FramelessDialog::moveButtonToEnd(QPushButton *button)
{
    buttonRow()->removeWidget(button);
    buttonRow()->addWidget(button);
}

int FramelessDialog::contentWidth() const
{
    return m_width - 2 * metrics::kDialogPadding - 2; // The frame takes a pixel on each side.
}

void FramelessDialog::fitToContent()
{
    if (m_sizing != Sizing::FitContent)
        return;
    ensurePolished();
    layout()->activate();
    const int needed = layout()->hasHeightForWidth() ? layout()->totalHeightForWidth(m_width)
                                                     : layout()->totalSizeHint().height();
    setFixedSize(m_width, needed);
}

void FramelessDialog::showEvent(QShowEvent *event)
{
    fitToContent();
    QDialog::showEvent(event);
    if (!event->spontaneous() && isModal())
        DialogScrim::follow(this);
}

} // namespace common
} // namespace ui
