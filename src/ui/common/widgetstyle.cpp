#include "ui/common/widgetstyle.h"

#include <QPushButton>
#include <QStyle>

namespace ui {
namespace common {

namespace {

void repolish(QWidget *widget)
{
    widget->style()->unpolish(widget);
    widget->style()->polish(widget);
    widget->updateGeometry();
    widget->update();
}

} // namespace

void setStyleProperty(QWidget *widget, const char *name, const QVariant &value)
{
    if (widget->property(name) == value)
        return;
    widget->setProperty(name, value);
    repolish(widget);
    for (QWidget *child : widget->findChildren<QWidget *>())
        repolish(child);
}

void setButtonRole(QPushButton *button, const QString &role)
{
    setStyleProperty(button, "role", role.isEmpty() ? QVariant() : QVariant(role));
}

void setUsable(QWidget *button, const QString &obstacle)
{
    button->setEnabled(obstacle.isEmpty());
    button->setToolTip(obstacle);
}

} // namespace common
} // namespace ui
