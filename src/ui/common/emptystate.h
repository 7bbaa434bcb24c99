#pragma once

#include "ui/common/iconwidget.h"

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace ui {
namespace common {

class WrapLabel;

/// What a list shows instead of rows: an icon, one line of what it is, one line of what to do and,
/// if there is a next step, one button. Also for a list that is busy (a moving bar in place of the
/// icon) or broken (an icon in the danger colour). Object names: EmptyStateIcon, EmptyStateTitle,
/// EmptyStateHint, EmptyStateBusyBar, EmptyStateButton.
class EmptyState : public QWidget
{
    Q_OBJECT

public:
    enum class Tone { Plain, Busy, Error };

    explicit EmptyState(IconWidget::IconType icon, QWidget *parent = nullptr);

    /// An empty hint takes no room.
    void setTexts(const QString &title, const QString &hint);
    void setIcon(IconWidget::IconType icon);
    void setTone(Tone tone);
    /// An empty text hides the button.
    void setActionText(const QString &text);

signals:
    void actionTriggered();

private:
    void arrange();

    IconWidget *m_icon;
    QProgressBar *m_busy;
    QLabel *m_title;
    WrapLabel *m_hint;
    QPushButton *m_action;
};

} // namespace common
} // namespace ui
