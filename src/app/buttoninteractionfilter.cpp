#include "app/buttoninteractionfilter.h"

#include "ui/common/accessibility.h"
#include "ui/common/keyroles.h"

#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QPushButton>
#include <QToolButton>

namespace {

// The focus policy that a button had before it was taken away.
const char policyProperty[] = "pageFocusPolicy";

} // namespace

ButtonInteractionFilter::ButtonInteractionFilter(QObject *parent)
    : QObject(parent)
{
    ui::common::installAccessibleRoles();
    QAccessible::installActivationObserver(this);
}

ButtonInteractionFilter::~ButtonInteractionFilter()
{
    QAccessible::removeActivationObserver(this);
}

void ButtonInteractionFilter::setKeyboardNavigation(bool on)
{
    m_keyboardNavigation = on;
}

void ButtonInteractionFilter::accessibilityActiveChanged(bool active)
{
    if (!active)
        return;
    const QWidgetList widgets = QApplication::allWidgets();
    for (QWidget *widget : widgets) {
        const QVariant policy = widget->property(policyProperty);
        ui::common::completeAccessibleName(widget);
        if (policy.isValid())
            widget->setFocusPolicy(Qt::FocusPolicy(policy.toInt()));
    }
}

bool ButtonInteractionFilter::mayTakeFocus(const QWidget *button) const
{
    return m_keyboardNavigation || QAccessible::isActive() || ui::common::isTabStop(button) ||
           qobject_cast<QDialog *>(button->window());
}

bool ButtonInteractionFilter::eventFilter(QObject *watched, QEvent *event)
{
    const bool shows = event->type() == QEvent::Polish || event->type() == QEvent::Show;
    if (!shows || !watched->isWidgetType())
        return QObject::eventFilter(watched, event);
    auto *widget = static_cast<QWidget *>(watched);
    ui::common::completeAccessibleName(widget);
    if (qobject_cast<QPushButton *>(widget) || qobject_cast<QToolButton *>(widget)) {
        if (!mayTakeFocus(widget) && widget->focusPolicy() != Qt::NoFocus) {
            widget->setProperty(policyProperty, int(widget->focusPolicy()));
            widget->setFocusPolicy(Qt::NoFocus);
        }
        if (widget->isEnabled())
            widget->setCursor(Qt::PointingHandCursor);
    }
    return QObject::eventFilter(watched, event);
}
