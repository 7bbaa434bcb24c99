#include "ui/common/framelesswindowcontroller.h"

#include "ui/common/systemmove.h"
#include "ui/common/windowtitlebar.h"

#include <QApplication>
#include <QMouseEvent>
#include <QWidget>

namespace ui {
namespace common {

namespace {

constexpr int kBand = 6;
const char kEdgesProperty[] = "resizeEdges";

Qt::CursorShape cursorFor(Qt::Edges edges)
{
    const Qt::Edges falling = Qt::TopEdge | Qt::LeftEdge;
    const Qt::Edges fallingEnd = Qt::BottomEdge | Qt::RightEdge;
    if (edges == falling || edges == fallingEnd)
        return Qt::SizeFDiagCursor;
    if (edges == Qt::Edges(Qt::LeftEdge) || edges == Qt::Edges(Qt::RightEdge))
        return Qt::SizeHorCursor;
    if (edges == Qt::Edges(Qt::TopEdge) || edges == Qt::Edges(Qt::BottomEdge))
        return Qt::SizeVerCursor;
    return Qt::SizeBDiagCursor;
}

/// Where the handle of `edges` lies in a window of that size.
QRect handleRect(const QSize &window, Qt::Edges edges)
{
    int left = kBand;
    int top = kBand;
    int width = window.width() - 2 * kBand;
    int height = window.height() - 2 * kBand;
    if (edges & (Qt::LeftEdge | Qt::RightEdge)) {
        left = edges & Qt::LeftEdge ? 0 : window.width() - kBand;
        width = kBand;
    }
    if (edges & (Qt::TopEdge | Qt::BottomEdge)) {
        top = edges & Qt::TopEdge ? 0 : window.height() - kBand;
        height = kBand;
    }
    return QRect(left, top, qMax(0, width), qMax(0, height));
}

Qt::Edges edgesOf(const QWidget *handle)
{
    return Qt::Edges(handle->property(kEdgesProperty).toInt());
}

bool fillsScreen(const QWidget *window)
{
    return window->isMaximized() || window->isFullScreen();
}

} // namespace

bool FramelessWindowController::shouldUseCustomChrome()
{
    return shouldUseCustomChrome(QGuiApplication::platformName());
}

bool FramelessWindowController::shouldUseCustomChrome(const QString &platformName)
{
    return !platformName.toLower().contains(QLatin1String("wayland"));
}

Qt::WindowFlags FramelessWindowController::windowFlagsForPlatform()
{
    if (!shouldUseCustomChrome())
        return Qt::Window;
    return Qt::Window | Qt::FramelessWindowHint | Qt::WindowSystemMenuHint |
           Qt::WindowMinMaxButtonsHint | Qt::WindowCloseButtonHint;
}

FramelessWindowController::FramelessWindowController(QWidget *window, WindowTitleBar *titleBar,
                                                     bool enabled, bool resizable, QObject *parent)
    : QObject(parent)
    , m_window(window)
    , m_titleBar(titleBar)
    , m_enabled(enabled)
    , m_resizable(resizable)
{
    if (!m_enabled) {
        m_titleBar->hide();
        return;
    }
    connect(m_titleBar, &QObject::destroyed, this, [this] { m_titleBar = nullptr; });
    connect(m_titleBar, &WindowTitleBar::requestMinimize, m_window, &QWidget::showMinimized);
    connect(m_titleBar, &WindowTitleBar::requestToggleMaximize, this,
            &FramelessWindowController::toggleMaximized);
    connect(m_titleBar, &WindowTitleBar::requestClose, m_window, &QWidget::close);
    if (m_resizable)
        createResizeHandles();
    m_window->installEventFilter(this);
    m_titleBar->installEventFilter(this);
    syncWindowControlState();
}

void FramelessWindowController::syncWindowControlState()
{
    if (!m_enabled || !m_window || !m_titleBar)
        return;
    m_titleBar->setTitle(m_window->windowTitle());
    m_titleBar->setMaximized(fillsScreen(m_window));
    for (QWidget *handle : qAsConst(m_handles))
        handle->setVisible(!fillsScreen(m_window));
    layoutResizeHandles();
}

void FramelessWindowController::createResizeHandles()
{
    const Qt::Edges all[] = {Qt::TopEdge,
                             Qt::BottomEdge,
                             Qt::LeftEdge,
                             Qt::RightEdge,
                             Qt::TopEdge | Qt::LeftEdge,
                             Qt::TopEdge | Qt::RightEdge,
                             Qt::BottomEdge | Qt::LeftEdge,
                             Qt::BottomEdge | Qt::RightEdge};
    for (const Qt::Edges edges : all) {
        auto *handle = new QWidget(m_window);
        handle->setObjectName(QStringLiteral("WindowResizeHandle"));
        handle->setProperty(kEdgesProperty, static_cast<int>(edges));
        handle->setAttribute(Qt::WA_NoSystemBackground);
        handle->setCursor(cursorFor(edges));
        handle->installEventFilter(this);
        m_handles.append(handle);
    }
}

void FramelessWindowController::layoutResizeHandles()
{
    for (QWidget *handle : qAsConst(m_handles)) {
        handle->setGeometry(handleRect(m_window->size(), edgesOf(handle)));
        handle->raise();
    }
}

void FramelessWindowController::toggleMaximized()
{
    if (!m_resizable)
        return;
    if (fillsScreen(m_window))
        m_window->showNormal();
    else
        m_window->showMaximized();
}

void FramelessWindowController::beginMove(const QPoint &globalPosition)
{
    if (startSystemMove(m_window)) {
        m_drag = Drag::None;
        return;
    }
    if (fillsScreen(m_window))
        leaveMaximizedUnder(globalPosition);
    m_drag = Drag::Moving;
    m_pressPosition = globalPosition;
    m_pressGeometry = m_window->geometry();
}

void FramelessWindowController::leaveMaximizedUnder(const QPoint &globalPosition)
{
    // The title bar stays under the pointer, at the same share of its width.
    const QRect whole = m_window->geometry();
    const QRect normal = m_window->normalGeometry();
    const int offset = (globalPosition.x() - whole.x()) * normal.width() / qMax(1, whole.width());
    m_window->showNormal();
    m_window->setGeometry(QRect(QPoint(globalPosition.x() - offset, whole.y()), normal.size()));
}

void FramelessWindowController::beginResize(Qt::Edges edges)
{
    if (startSystemResize(m_window, edges)) {
        m_drag = Drag::None;
        return;
    }
    m_drag = Drag::Resizing;
    m_edges = edges;
    m_pressGeometry = m_window->geometry();
}

void FramelessWindowController::continueDrag(const QMouseEvent *event)
{
    const QPoint delta = event->globalPos() - m_pressPosition;
    if (!(event->buttons() & Qt::LeftButton)) {
        m_drag = Drag::None;
    } else if (m_drag == Drag::Moving) {
        m_window->move(m_pressGeometry.topLeft() + delta);
    } else if (m_drag == Drag::Resizing) {
        const QSize least = m_window->minimumSize().expandedTo(m_window->minimumSizeHint());
        m_window->setGeometry(
            resizedGeometry(m_pressGeometry, m_edges, delta, least, m_window->maximumSize()));
    }
}

bool FramelessWindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (!m_window || !m_titleBar)
        return false;
    if (watched == m_window)
        watchWindow(event);
    else if (watched == m_titleBar)
        return watchTitleBar(event);
    else if (watched->isWidgetType())
        return watchHandle(static_cast<QWidget *>(watched), event);
    return false;
}

void FramelessWindowController::watchWindow(QEvent *event)
{
    switch (event->type()) {
    case QEvent::Show:
    case QEvent::WindowStateChange:
    case QEvent::WindowTitleChange:
        syncWindowControlState();
        break;
    case QEvent::Resize:
    case QEvent::ChildAdded: // A later child would cover the handles.
        layoutResizeHandles();
        break;
    default:
        break;
    }
}

bool FramelessWindowController::watchTitleBar(QEvent *event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::MouseButtonPress && type != QEvent::MouseButtonDblClick &&
        type != QEvent::MouseMove && type != QEvent::MouseButtonRelease) {
        return false;
    }
    const auto *mouse = static_cast<const QMouseEvent *>(event);
    if (type == QEvent::MouseMove) {
        // The system takes the mouse for itself once it moves the window, so a double click would
        // be lost if a mere press started the move.
        const QPoint way = mouse->globalPos() - m_pressPosition;
        if (m_drag == Drag::Armed && way.manhattanLength() >= QApplication::startDragDistance())
            beginMove(m_pressPosition);
        continueDrag(mouse);
        return true;
    }
    if (mouse->button() != Qt::LeftButton || m_titleBar->isControlButtonAt(mouse->pos()))
        return false;
    m_drag = type == QEvent::MouseButtonPress ? Drag::Armed : Drag::None;
    m_pressPosition = mouse->globalPos();
    if (type == QEvent::MouseButtonDblClick)
        toggleMaximized();
    return true;
}

bool FramelessWindowController::watchHandle(const QWidget *handle, QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        const auto *mouse = static_cast<const QMouseEvent *>(event);
        if (mouse->button() != Qt::LeftButton)
            return false;
        m_pressPosition = mouse->globalPos();
        beginResize(edgesOf(handle));
        return true;
    }
    case QEvent::MouseMove:
        continueDrag(static_cast<const QMouseEvent *>(event));
        return true;
    case QEvent::MouseButtonRelease:
        m_drag = Drag::None;
        return true;
    default:
        return false;
    }
}

} // namespace common
} // namespace ui
