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

/// Turns a button with a text on where `obstacle` is empty; else off, with the obstacle as its tool
/// tip, so that one learns what to do first.
void setUsable(QWidget *button, const QString &obstacle);

} // namespace common
} // namespace ui
