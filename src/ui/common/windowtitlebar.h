#pragma once

#include <QWidget>

class QToolButton;

namespace ui {
namespace common {

class ElidedLabel;

/// Title bar of a window that draws its own frame: title and window control buttons. Object names:
/// CustomTitleBar, CustomTitleLabel, WinCtlMin, WinCtlZoom, WinCtlClose.
class WindowTitleBar : public QWidget
{
    Q_OBJECT

public:
    enum class ButtonMode {
        MinMaxClose, ///< A main window.
        MinClose,    ///< A window of fixed size.
        CloseOnly,   ///< A dialog.
    };

    explicit WindowTitleBar(QWidget *parent = nullptr, ButtonMode mode = ButtonMode::MinMaxClose);

    void setTitle(const QString &title);
    void setTitleVisible(bool visible);
    /// Tells the bar about the window's state, for the zoom button's tool tip.
    void setMaximized(bool maximized);
    void setButtonMode(ButtonMode mode);
    /// True if one of the control buttons lies at `position` in the bar's coordinates.
    bool isControlButtonAt(const QPoint &position) const;

signals:
    void requestMinimize();
    void requestToggleMaximize();
    void requestClose();

private:
    ElidedLabel *m_title;
    QToolButton *m_minimize;
    QToolButton *m_zoom;
    QToolButton *m_close;
};

} // namespace common
} // namespace ui
