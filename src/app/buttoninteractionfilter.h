#pragma once

#include <QObject>

/// Installed on the application: every push and tool button shows a hand cursor while it is
/// enabled and never takes the keyboard focus. Swallows nothing.
class ButtonInteractionFilter : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
};
