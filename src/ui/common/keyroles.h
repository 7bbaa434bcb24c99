#pragma once

class QObject;
class QWidget;

namespace ui::common {

/// What a control of a page stands for when a key of the whole program is pressed.
enum class KeyRole {
    Search = 1, ///< Ctrl+F leads there; Escape empties it.
    Refresh,    ///< F5 presses it.
    Remove,     ///< Delete presses it while a list has the focus.
    Panel,      ///< Escape closes it first: it gets the key.
};

/// Marks a control, so that the program's keys find it. One of a kind is visible at a time.
void setKeyRole(QObject *control, KeyRole role);
/// The first visible and enabled control of that role in a window or page, or null.
QWidget *controlOf(const QWidget *root, KeyRole role);
/// The first visible and enabled button that is drawn as the main one, or null.
QWidget *primaryControlOf(const QWidget *root);

/// Lets a button of a page take the focus by Tab; the others do so in dialogs only, and where a
/// screen reader or the user's setting asks for it.
void setTabStop(QWidget *button);
bool isTabStop(const QWidget *button);

} // namespace ui::common
