#pragma once

#include <QAccessible>
#include <QObject>

class QWidget;

/// Installed on the application: every push and tool button shows a hand cursor while it is
/// enabled. Buttons of pages never take the keyboard focus, unless a screen reader is active or the
/// user asks for it; those of dialogs always do. Each control gets a name for screen readers.
/// Swallows nothing.
class ButtonInteractionFilter : public QObject, public QAccessible::ActivationObserver
{
    Q_OBJECT

public:
    explicit ButtonInteractionFilter(QObject *parent = nullptr);
    ~ButtonInteractionFilter() override;

    /// Lets all buttons take the focus by Tab; off at first. For buttons shown after the call.
    void setKeyboardNavigation(bool on);
    /// Buttons that have been shown already take the focus, too, once a screen reader comes.
    void accessibilityActiveChanged(bool active) override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool mayTakeFocus(const QWidget *button) const;

    bool m_keyboardNavigation = false;
};
