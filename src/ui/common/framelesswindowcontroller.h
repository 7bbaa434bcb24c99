#pragma once

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QRect>
#include <QVector>

class QMouseEvent;
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

    /// `enabled` false leaves the window as it is and hides the title bar. Otherwise the bar also
    /// follows the window's title. `resizable` false means no handles and no maximising.
    FramelessWindowController(QWidget *window, WindowTitleBar *titleBar, bool enabled,
                              bool resizable, QObject *parent);

    /// Brings title bar and handles in step with the window's state.
    void syncWindowControlState();
    bool isEnabled() const { return m_enabled; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    /// What the pressed mouse is about to do or does by hand.
    enum class Drag { None, Armed, Moving, Resizing };

    void createResizeHandles();
    void layoutResizeHandles();
    void toggleMaximized();
    void beginMove(const QPoint &globalPosition);
    void beginResize(Qt::Edges edges);
    void leaveMaximizedUnder(const QPoint &globalPosition);
    void continueDrag(const QMouseEvent *event);
    void watchWindow(QEvent *event);
    bool watchTitleBar(QEvent *event);
    bool watchHandle(const QWidget *handle, QEvent *event);

    QPointer<QWidget> m_window;
    WindowTitleBar *m_titleBar; ///< Null once the bar is gone.
    bool m_enabled;
    bool m_resizable;
    QVector<QWidget *> m_handles;
    Drag m_drag = Drag::None;
    Qt::Edges m_edges;
    QPoint m_pressPosition;
    QRect m_pressGeometry;
};

} // namespace common
} // namespace ui
