#pragma once

#include <QObject>
#include <QVector>

class QWidget;

namespace ui {
namespace common {

class WindowTitleBar;

/// Moves, resizes and controls a window that has no system frame: eight invisible handles around
/// its edge, the title bar's drag and double click, and the control buttons. Under Wayland the
/// system decorates the window and the controller stays idle.
class FramelessWindowController : public QObject
{
    Q_OBJECT

public:
    /// False where the platform is a Wayland one.
    static bool shouldUseCustomChrome();
    static bool shouldUseCustomChrome(const QString &platformName);
    static Qt::WindowFlags windowFlagsForPlatform();

    /// `enabled` false leaves the window as it is and hides the title bar.
    FramelessWindowController(QWidget *window, WindowTitleBar *titleBar, bool enabled,
                              bool resizable, QObject *parent);

    /// Brings title bar and handles in step with the window's state.
    void syncWindowControlState();
    bool isEnabled() const { return m_enabled; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void createResizeHandles();
    void layoutResizeHandles();
    void toggleMaximized();
    void beginMove(const QPoint &globalPosition);
    void beginResize(Qt::Edges edges);

    QWidget *m_window;
    WindowTitleBar *m_titleBar;
    bool m_enabled;
    bool m_resizable;
    QVector<QWidget *> m_handles;
};

} // namespace common
} // namespace ui
