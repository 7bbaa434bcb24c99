#include "ui/common/keyroles.h"

#include <QPushButton>
#include <QVariant>

namespace ui::common {

namespace {

const char roleProperty[] = "keyRole";
const char tabStopProperty[] = "tabStop";

bool canBeUsed(const QWidget *control)
{
    return control->isVisible() && control->isEnabled();
}

} // namespace

void setKeyRole(QObject *control, KeyRole role)
{
    control->setProperty(roleProperty, int(role));
}

QWidget *controlOf(const QWidget *root, KeyRole role)
{
    const QList<QWidget *> controls = root->findChildren<QWidget *>();
    for (QWidget *control : controls) {
        if (control->property(roleProperty).toInt() == int(role) && canBeUsed(control))
            return control;
    }
    return nullptr;
}

QWidget *primaryControlOf(const QWidget *root)
{
    const QList<QPushButton *> buttons = root->findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        const bool isPrimary = button->property("role") == QLatin1String("primary") ||
                               button->objectName() == QLatin1String("PrimaryActionButton");
        if (isPrimary && canBeUsed(button))
            return button;
    }
    return nullptr;
}

void setTabStop(QWidget *button)
{
    button->setProperty(tabStopProperty, true);
}

bool isTabStop(const QWidget *button)
{
    return button->property(tabStopProperty).toBool();
}

} // namespace ui::common
