#include "app/buttoninteractionfilter.h"

#include <QEvent>
#include <QPushButton>
#include <QToolButton>

bool ButtonInteractionFilter::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Polish || event->type() == QEvent::Show) {
        QWidget *button = qobject_cast<QPushButton *>(watched);
        if (!button)
            button = qobject_cast<QToolButton *>(watched);
        if (button) {
            button->setFocusPolicy(Qt::NoFocus);
            if (button->isEnabled())
                button->setCursor(Qt::PointingHandCursor);
        }
    }
    return QObject::eventFilter(watched, event);
}
