#pragma once

#include <QAccessible>

class QWidget;

namespace ui::common {

/// Makes windows and scroll areas known as such to screen readers. Call it before the first window.
void installAccessibleRoles();

/// Gives a widget another role on the accessibility bus than its class has. A button or card can
/// then be pressed there; its property "selected" or its check tells whether it is chosen.
void setAccessibleRole(QWidget *widget, QAccessible::Role role);

/// Tells a screen reader that a card became the chosen one, or no longer is.
void announceChosen(QWidget *card);

/// Names a control which has no name of its own: by its tool tip, its placeholder, or the label
/// before it. Does nothing where a name or a buddy exists.
void completeAccessibleName(QWidget *widget);

} // namespace ui::common
