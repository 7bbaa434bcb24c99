#pragma once

#include <QVariant>

class QPushButton;
class QWidget;

namespace ui {
namespace common {

/// Sets a dynamic property that the style sheet selects on and applies the sheet anew to the
/// widget and its children. Does nothing without a change.
void setStyleProperty(QWidget *widget, const char *name, const QVariant &value);

/// Gives a button one of the roles "primary", "danger", "warning", "success", "nav-active",
/// "quiet", "quiet-danger", "icon"; empty for the plain one.
void setButtonRole(QPushButton *button, const QString &role);

} // namespace common
} // namespace ui
