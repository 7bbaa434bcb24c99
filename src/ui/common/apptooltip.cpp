#include "ui/common/apptooltip.h"

#include "ui/common/wraplabel.h"

#include <QApplication>
#include <QEvent>
#include <QPainter>
#include <QScreen>
#include <QStyleOption>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

namespace ui {
namespace common {

namespace {

constexpr int kMaxWidth = 320;
constexpr int kSideMargins = 24; ///< Both sides together.
constexpr int kVerticalMargin = 8;
constexpr int kGap = 4;

QPointer<AppToolTip> theInstance;

void deleteInstance()
{
    delete theInstance;
}

QScreen *screenOf(const QWidget *anchor)
{
    const QPoint centre = anchor->mapToGlobal(anchor->rect().center());
    QScreen *screen = QGuiApplication::screenAt(centre);
    return screen ? screen : QGuiApplication::primaryScreen();
}

/// True for what means that the user has turned to something else.
bool isDismissal(QEvent::Type type)
{
    switch (type) {
    case QEvent::Leave:
    case QEvent::Hide:
    case QEvent::Close:
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
    case QEvent::Wheel:
    case QEvent::KeyPress:
    case QEvent::FocusOut:
    case QEvent::WindowDeactivate:
        return true;
    default:
        return false;
    }
}

} // namespace

AppToolTip::AppToolTip()
    : QWidget(nullptr, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowTransparentForInput)
    , m_title(new WrapLabel(this))
    , m_body(new WrapLabel(this))
    , m_delay(new QTimer(this))
{
    setObjectName(QStringLiteral("AppToolTip"));
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    m_title->setObjectName(QStringLiteral("AppToolTipTitle"));
    m_body->setObjectName(QStringLiteral("AppToolTipBody"));
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(kSideMargins / 2, kVerticalMargin, kSideMargins / 2,
                               kVerticalMargin);
    column->setSpacing(4);
    column->addWidget(m_title);
    column->addWidget(m_body);
    m_delay->setSingleShot(true);
    connect(m_delay, &QTimer::timeout, this, &AppToolTip::showNow);
}

AppToolTip *AppToolTip::instance()
{
    if (!theInstance) {
        theInstance = new AppToolTip;
        // A widget may not outlive the application object.
        qAddPostRoutine(deleteInstance);
    }
    return theInstance;
}

void AppToolTip::show(QWidget *anchor, const QString &title, const QString &body, int delayMs)
{
    if (anchor)
        instance()->scheduleShow(anchor, title, body, delayMs);
}

void AppToolTip::show(QWidget *anchor, const QString &body, int delayMs)
{
    show(anchor, QString(), body, delayMs);
}

void AppToolTip::hide()
{
    if (theInstance)
        theInstance->dismiss();
}

void AppToolTip::install(QWidget *anchor, const QString &title, const QString &body, int delayMs)
{
    AppToolTip *tip = instance();
    if (!tip->m_installed.contains(anchor)) {
        anchor->installEventFilter(tip);
        connect(anchor, &QObject::destroyed, tip,
                [tip](QObject *gone) { tip->m_installed.remove(gone); });
    }
    tip->m_installed.insert(anchor, Tip{title, body, delayMs});
    // The mouse may rest on the anchor while its state, and with it the text, changes.
    if (tip->m_anchor == anchor && tip->isVisible())
        tip->scheduleShow(anchor, title, body, 0);
    else if (tip->m_anchor == anchor && tip->m_delay->isActive())
        tip->scheduleShow(anchor, title, body, tip->m_delay->remainingTime());
}

void AppToolTip::scheduleShow(QWidget *anchor, const QString &title, const QString &body,
                              int delayMs)
{
    m_delay->stop();
    if (m_anchor != anchor)
        dismiss();
    m_anchor = anchor;
    m_titleText = title;
    m_bodyText = body;
    anchor->installEventFilter(this);
    if (delayMs < 1)
        showNow();
    else
        m_delay->start(delayMs);
}

void AppToolTip::showNow()
{
    if (!m_anchor || !m_anchor->isVisible() || (m_titleText.isEmpty() && m_bodyText.isEmpty())) {
        dismiss();
        return;
    }
    connect(m_anchor.data(), &QObject::destroyed, this, &AppToolTip::dismissWithAnchor,
            Qt::UniqueConnection);
    m_title->setText(m_titleText);
    m_title->setVisible(!m_titleText.isEmpty());
    m_body->setText(m_bodyText);
    m_body->setVisible(!m_bodyText.isEmpty());
    const WrapLabel *measured = m_bodyText.isEmpty() ? m_title : m_body;
    const int wanted = qMin(measured->naturalWidth() + kSideMargins, kMaxWidth);
    layout()->activate();
    resize(wanted, layout()->totalHeightForWidth(wanted));
    reposition();
    QWidget::show();
    raise();
}

void AppToolTip::reposition()
{
    const QRect available = screenOf(m_anchor)->availableGeometry();
    QPoint position = m_anchor->mapToGlobal(QPoint(0, m_anchor->height() + kGap));
    if (position.y() + height() > available.bottom() + 1)
        position.setY(m_anchor->mapToGlobal(QPoint(0, 0)).y() - kGap - height());
    position.setX(qMin(position.x(), available.right() + 1 - width()));
    position.setX(qMax(position.x(), available.left()));
    // Wayland places a tip only relative to the window it belongs to.
    winId();
    windowHandle()->setTransientParent(m_anchor->window()->windowHandle());
    move(position);
}

void AppToolTip::dismiss()
{
    m_delay->stop();
    if (m_anchor && !m_installed.contains(m_anchor))
        m_anchor->removeEventFilter(this);
    m_anchor.clear();
    QWidget::hide();
}

void AppToolTip::dismissWithAnchor()
{
    // An earlier anchor may be the one that went.
    if (!m_anchor)
        dismiss();
}

void AppToolTip::paintEvent(QPaintEvent *)
{
    // A translucent window has no background of its own, only what is painted here.
    QPainter painter(this);
    QStyleOption option;
    option.initFrom(this);
    style()->drawPrimitive(QStyle::PE_Widget, &option, &painter, this);
}

bool AppToolTip::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_anchor && isDismissal(event->type())) {
        dismiss();
    } else if (event->type() == QEvent::Enter && m_installed.contains(watched)) {
        const Tip tip = m_installed.value(watched);
        scheduleShow(static_cast<QWidget *>(watched), tip.title, tip.body, tip.delayMs);
    }
    return false;
}

} // namespace common
} // namespace ui
