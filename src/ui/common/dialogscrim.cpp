#include "ui/common/dialogscrim.h"

#include "ui/common/theme.h"

#include <QEvent>
#include <QPainter>

namespace ui::common {

namespace {

constexpr int kShadowSpread = 16; ///< How far the shadow reaches beyond the dialog, in pixels.
constexpr int kShadowDrop = 4;    ///< How far it lies below.
constexpr int kShadowSteps = 8;
constexpr int kShadowAlpha = 14; ///< Of one step; they lie upon each other.
constexpr int kScrimAlpha = 110;
constexpr int kDarkScrimAlpha = 150; ///< A dark ground needs more to recede.
constexpr int kCornerRadius = 0;     ///< The dialogs are square; the shadow is not.

// The darkest colour of the palette in use.
QColor scrimColor()
{
    const ThemeColors &colors = ThemeColors::current();
    QColor color =
        colors.type == ThemeType::dark ? colors.windowBackground.darker(300) : colors.textPrimary;
    color.setAlpha(colors.type == ThemeType::dark ? kDarkScrimAlpha : kScrimAlpha);
    return color;
}

} // namespace

void DialogScrim::follow(QWidget *dialog)
{
    QWidget *below = dialog->parentWidget() ? dialog->parentWidget()->window() : nullptr;
    if (!below || !below->isVisible())
        return;
    auto *scrim = new DialogScrim(below, dialog);
    scrim->cover();
    scrim->show();
    scrim->raise();
}

DialogScrim::DialogScrim(QWidget *window, QWidget *dialog)
    : QWidget(window)
    , m_dialog(dialog)
{
    setObjectName(QStringLiteral("DialogScrim"));
    setFocusPolicy(Qt::NoFocus);
    window->installEventFilter(this);
    dialog->installEventFilter(this);
    connect(dialog, &QObject::destroyed, this, &QObject::deleteLater);
}

void DialogScrim::cover()
{
    setGeometry(parentWidget()->rect());
}

bool DialogScrim::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::Resize:
    case QEvent::Move:
        if (watched == parentWidget())
            cover();
        update();
        break;
    case QEvent::Hide:
        if (watched == m_dialog) {
            hide();
            deleteLater();
        }
        break;
    default:
        break;
    }
    return QWidget::eventFilter(watched, event);
}

void DialogScrim::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), scrimColor());
    if (!m_dialog)
        return;
    QColor shadow = scrimColor();
    shadow.setAlpha(kShadowAlpha);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(shadow);
    const QRect dialog(mapFromGlobal(m_dialog->geometry().topLeft()), m_dialog->size());
    for (int step = kShadowSteps; step > 0; --step) {
        const int spread = kShadowSpread * step / kShadowSteps;
        const QRect ring =
            dialog.translated(0, kShadowDrop).adjusted(-spread, -spread, spread, spread);
        painter.drawRoundedRect(ring, kCornerRadius + spread, kCornerRadius + spread);
    }
}

} // namespace ui::common
