#include "ui/common/framelessdialog.h"
#include "ui/common/framelesswindowcontroller.h"
#include "ui/common/systemmove.h"
#include "ui/common/windowtitlebar.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWindow>
#include <QtTest>

using namespace ui::common;

namespace {

/// A window with a title bar of its own, as the main window has.
struct Window
{
    explicit Window(bool enabled = true, bool resizable = true,
                    WindowTitleBar::ButtonMode mode = WindowTitleBar::ButtonMode::MinMaxClose)
        : bar(new WindowTitleBar(&widget, mode))
        , controller(&widget, bar, enabled, resizable, nullptr)
    {
        widget.setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
        widget.setWindowTitle(QStringLiteral("墨川归档"));
        auto *column = new QVBoxLayout(&widget);
        column->setContentsMargins(0, 0, 0, 0);
        column->addWidget(bar);
        column->addStretch(1);
        widget.setMinimumSize(200, 150);
        widget.setGeometry(100, 100, 400, 300);
    }

    QToolButton *button(const char *name) const
    {
        return bar->findChild<QToolButton *>(QString::fromLatin1(name));
    }

    /// By the edges they move.
    QMap<int, QWidget *> handles() const
    {
        QMap<int, QWidget *> found;
        const QList<QWidget *> children = widget.findChildren<QWidget *>();
        for (QWidget *child : children) {
            if (child->property("resizeEdges").isValid())
                found.insert(child->property("resizeEdges").toInt(), child);
        }
        return found;
    }

    /// Presses at `from`, moves by `delta` and lets go, through the window system's events.
    void drag(const QPoint &from, const QPoint &delta)
    {
        QWindow *handle = widget.windowHandle();
        const QPoint start = widget.mapToGlobal(from);
        const auto local = [&](const QPoint &global) {
            return global - widget.pos();
        };
        QTest::mousePress(handle, Qt::LeftButton, Qt::NoModifier, from);
        QTest::mouseMove(handle, local(start + delta / 2));
        QTest::mouseMove(handle, local(start + delta));
        QTest::mouseRelease(handle, Qt::LeftButton, Qt::NoModifier, local(start + delta));
    }

    QWidget widget;
    WindowTitleBar *bar;
    FramelessWindowController controller;
};

} // namespace

Q_DECLARE_METATYPE(WindowTitleBar::ButtonMode)

class TestWindowChrome : public QObject
{
    Q_OBJECT

private slots:
    void platforms_data();
    void platforms();
    void disabled();
    void titleBar_data();
    void titleBar();
    void controlButtons();
    void doubleClick();
    void handles();
    void handlesFollowTheWindow();
    void dragMoves();
    void dragOfAMaximizedWindow();
    void dragResizes();
    void resizedGeometry_data();
    void resizedGeometry();
    void fixedWindow();
    void windowGoesFirst();
    void dialogKeys_data();
    void dialogKeys();
};

void TestWindowChrome::platforms_data()
{
    QTest::addColumn<QString>("platform");
    QTest::addColumn<bool>("custom");
    QTest::newRow("X11") << QStringLiteral("xcb") << true;
    QTest::newRow("desktop's own X11") << QStringLiteral("dxcb") << true;
    QTest::newRow("offscreen") << QStringLiteral("offscreen") << true;
    QTest::newRow("Wayland") << QStringLiteral("wayland") << false;
    QTest::newRow("Wayland with EGL") << QStringLiteral("wayland-egl") << false;
    QTest::newRow("desktop's own Wayland") << QStringLiteral("dWayland") << false;
    QTest::newRow("none") << QString() << true;
}

void TestWindowChrome::platforms()
{
    QFETCH(QString, platform);
    QFETCH(bool, custom);
    QCOMPARE(FramelessWindowController::shouldUseCustomChrome(platform), custom);
}

void TestWindowChrome::disabled()
{
    Window window(false);
    QVERIFY(!window.controller.isEnabled());
    window.widget.show();
    window.controller.syncWindowControlState();
    QVERIFY(!window.bar->isVisible());
    QVERIFY(window.handles().isEmpty());
    // These tests run offscreen, which is no Wayland.
    QVERIFY(FramelessWindowController::shouldUseCustomChrome());
    QVERIFY(FramelessWindowController::windowFlagsForPlatform() & Qt::FramelessWindowHint);
}

void TestWindowChrome::titleBar_data()
{
    QTest::addColumn<WindowTitleBar::ButtonMode>("mode");
    QTest::addColumn<bool>("minimize");
    QTest::addColumn<bool>("zoom");
    QTest::newRow("all") << WindowTitleBar::ButtonMode::MinMaxClose << true << true;
    QTest::newRow("fixed size") << WindowTitleBar::ButtonMode::MinClose << true << false;
    QTest::newRow("dialog") << WindowTitleBar::ButtonMode::CloseOnly << false << false;
}

void TestWindowChrome::titleBar()
{
    QFETCH(WindowTitleBar::ButtonMode, mode);
    QFETCH(bool, minimize);
    QFETCH(bool, zoom);
    Window window(true, true, mode);
    window.widget.show();
    QCOMPARE(window.bar->objectName(), QStringLiteral("CustomTitleBar"));
    QCOMPARE(window.button("WinCtlMin")->isVisible(), minimize);
    QCOMPARE(window.button("WinCtlZoom")->isVisible(), zoom);
    QVERIFY(window.button("WinCtlClose")->isVisible());
    QCOMPARE(window.bar->isControlButtonAt(window.button("WinCtlZoom")->geometry().center()), zoom);
    QVERIFY(window.bar->isControlButtonAt(window.button("WinCtlClose")->geometry().center()));
    QVERIFY(!window.bar->isControlButtonAt(QPoint(20, 20)));
    for (const char *name : {"WinCtlMin", "WinCtlZoom", "WinCtlClose"})
        QVERIFY(!window.button(name)->icon().pixmap(16).isNull());

    auto *label = window.bar->findChild<QLabel *>(QStringLiteral("CustomTitleLabel"));
    QCOMPARE(label->text(), QStringLiteral("墨川归档"));
    window.widget.setWindowTitle(QStringLiteral("另一个"));
    QCOMPARE(label->text(), QStringLiteral("另一个"));
    const int closeAt = window.button("WinCtlClose")->x();
    window.bar->setTitleVisible(false);
    QCoreApplication::sendPostedEvents();
    QVERIFY(!label->isVisible());
    QCOMPARE(window.button("WinCtlClose")->x(), closeAt);
}

void TestWindowChrome::controlButtons()
{
    Window window;
    window.widget.show();
    QTest::mouseClick(window.button("WinCtlZoom"), Qt::LeftButton);
    QTRY_VERIFY(window.widget.isMaximized());
    QTRY_COMPARE(window.button("WinCtlZoom")->toolTip(), QStringLiteral("还原"));
    QTest::mouseClick(window.button("WinCtlZoom"), Qt::LeftButton);
    QTRY_VERIFY(!window.widget.isMaximized());
    QTRY_COMPARE(window.button("WinCtlZoom")->toolTip(), QStringLiteral("最大化"));
    QTest::mouseClick(window.button("WinCtlMin"), Qt::LeftButton);
    QTRY_VERIFY(window.widget.isMinimized());
    window.widget.showNormal();
    QTest::mouseClick(window.button("WinCtlClose"), Qt::LeftButton);
    QVERIFY(!window.widget.isVisible());
}

void TestWindowChrome::doubleClick()
{
    Window window;
    window.widget.show();
    QTest::mouseDClick(window.bar, Qt::LeftButton, Qt::NoModifier, QPoint(40, 20));
    QTRY_VERIFY(window.widget.isMaximized());
    QTest::mouseDClick(window.bar, Qt::LeftButton, Qt::NoModifier, QPoint(40, 20));
    QTRY_VERIFY(!window.widget.isMaximized());
    QTest::mouseDClick(window.bar, Qt::RightButton, Qt::NoModifier, QPoint(40, 20));
    QTest::mouseDClick(window.bar, Qt::LeftButton, Qt::NoModifier,
                       window.button("WinCtlMin")->geometry().center());
    QVERIFY(!window.widget.isMaximized());
}

void TestWindowChrome::handles()
{
    Window window;
    window.widget.show();
    const QMap<int, QWidget *> handles = window.handles();
    QCOMPARE(handles.size(), 8);
    const auto at = [&handles](Qt::Edges edges) {
        return handles.value(int(edges))->geometry();
    };
    QCOMPARE(at(Qt::TopEdge), QRect(6, 0, 388, 6));
    QCOMPARE(at(Qt::BottomEdge), QRect(6, 294, 388, 6));
    QCOMPARE(at(Qt::LeftEdge), QRect(0, 6, 6, 288));
    QCOMPARE(at(Qt::RightEdge), QRect(394, 6, 6, 288));
    QCOMPARE(at(Qt::TopEdge | Qt::LeftEdge), QRect(0, 0, 6, 6));
    QCOMPARE(at(Qt::BottomEdge | Qt::RightEdge), QRect(394, 294, 6, 6));
    QCOMPARE(handles.value(int(Qt::TopEdge | Qt::RightEdge))->cursor().shape(),
             Qt::SizeBDiagCursor);
    QCOMPARE(handles.value(int(Qt::TopEdge | Qt::LeftEdge))->cursor().shape(), Qt::SizeFDiagCursor);
    QCOMPARE(handles.value(int(Qt::LeftEdge))->cursor().shape(), Qt::SizeHorCursor);
    QCOMPARE(handles.value(int(Qt::TopEdge))->cursor().shape(), Qt::SizeVerCursor);
}

void TestWindowChrome::handlesFollowTheWindow()
{
    Window window;
    window.widget.show();
    QWidget *corner = window.handles().value(int(Qt::BottomEdge | Qt::RightEdge));
    window.widget.resize(600, 500);
    QCOMPARE(corner->geometry(), QRect(594, 494, 6, 6));
    // What is put into the window later does not cover them.
    QWidget cover(&window.widget);
    cover.setGeometry(0, 0, 600, 500);
    cover.show();
    QCOMPARE(window.widget.childAt(597, 497), corner);
    window.widget.showMaximized();
    QTRY_VERIFY(!corner->isVisible());
    window.widget.showNormal();
    QTRY_VERIFY(corner->isVisible());
}

void TestWindowChrome::dragMoves()
{
    Window window;
    window.widget.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window.widget));
    window.drag(QPoint(60, 20), QPoint(80, 50));
    QCOMPARE(window.widget.geometry(), QRect(180, 150, 400, 300));
    // A slip of the mouse is no drag, and neither is one that starts on a button.
    window.drag(QPoint(60, 20), QPoint(2, 2));
    QCOMPARE(window.widget.pos(), QPoint(180, 150));
    const QPoint onClose = window.button("WinCtlClose")->geometry().center();
    window.drag(onClose, QPoint(-80, 60));
    QCOMPARE(window.widget.pos(), QPoint(180, 150));
    QVERIFY(window.widget.isVisible());
}

void TestWindowChrome::dragOfAMaximizedWindow()
{
    Window window;
    window.widget.show();
    window.widget.showMaximized();
    QTRY_COMPARE(window.widget.width(), 800);
    window.drag(QPoint(400, 20), QPoint(0, 60));
    QTRY_VERIFY(!window.widget.isMaximized());
    QCOMPARE(window.widget.size(), QSize(400, 300));
    // Its middle was taken, so its middle stays under the mouse.
    QCOMPARE(window.widget.x(), 200);
    QCOMPARE(window.widget.y(), 60);
}

void TestWindowChrome::dragResizes()
{
    Window window;
    window.widget.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window.widget));
    window.drag(QPoint(397, 297), QPoint(60, 40));
    QCOMPARE(window.widget.geometry(), QRect(100, 100, 460, 340));
    window.drag(QPoint(3, 150), QPoint(1000, 0));
    QCOMPARE(window.widget.geometry(), QRect(360, 100, 200, 340));
}

void TestWindowChrome::resizedGeometry_data()
{
    QTest::addColumn<int>("edges");
    QTest::addColumn<QPoint>("delta");
    QTest::addColumn<QRect>("expected");
    const auto row = [](const char *name, Qt::Edges edges, QPoint delta, QRect expected) {
        QTest::newRow(name) << int(edges) << delta << expected;
    };
    row("right", Qt::RightEdge, {30, 99}, {100, 100, 330, 200});
    row("left", Qt::LeftEdge, {30, 99}, {130, 100, 270, 200});
    row("top", Qt::TopEdge, {99, -20}, {100, 80, 300, 220});
    row("lower right", Qt::BottomEdge | Qt::RightEdge, {10, 20}, {100, 100, 310, 220});
    row("upper left", Qt::TopEdge | Qt::LeftEdge, {10, 20}, {110, 120, 290, 180});
    row("least width", Qt::RightEdge, {-500, 0}, {100, 100, 150, 200});
    row("least width keeps the right edge", Qt::LeftEdge, {500, 0}, {250, 100, 150, 200});
    row("least height keeps the bottom", Qt::TopEdge, {0, 500}, {100, 200, 300, 100});
    row("greatest", Qt::BottomEdge | Qt::RightEdge, {900, 900}, {100, 100, 500, 400});
}

void TestWindowChrome::resizedGeometry()
{
    QFETCH(int, edges);
    QFETCH(QPoint, delta);
    QFETCH(QRect, expected);
    QCOMPARE(ui::common::resizedGeometry(QRect(100, 100, 300, 200), Qt::Edges(edges), delta,
                                         QSize(150, 100), QSize(500, 400)),
             expected);
}

void TestWindowChrome::fixedWindow()
{
    Window window(true, false, WindowTitleBar::ButtonMode::CloseOnly);
    window.widget.show();
    QVERIFY(window.handles().isEmpty());
    QTest::mouseDClick(window.bar, Qt::LeftButton, Qt::NoModifier, QPoint(40, 20));
    QVERIFY(!window.widget.isMaximized());
    window.drag(QPoint(60, 20), QPoint(40, 40));
    QCOMPARE(window.widget.geometry(), QRect(140, 140, 400, 300));
}

void TestWindowChrome::windowGoesFirst()
{
    auto *widget = new QWidget;
    auto *bar = new WindowTitleBar(widget);
    FramelessWindowController controller(widget, bar, true, true, nullptr);
    widget->show();
    delete widget;
    controller.syncWindowControlState();
    QVERIFY(controller.isEnabled());
}

namespace {

class SampleDialog : public FramelessDialog
{
public:
    SampleDialog()
    {
        setWindowTitle(QStringLiteral("索引设置"));
        contentLayout()->addWidget(new QLineEdit(this));
        connect(addButton(QStringLiteral("取消")), &QPushButton::clicked, this, &QDialog::reject);
        connect(addButton(QStringLiteral("确定"), QStringLiteral("primary")), &QPushButton::clicked,
                this, &QDialog::accept);
    }
};

} // namespace

void TestWindowChrome::dialogKeys_data()
{
    QTest::addColumn<QString>("focus");
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("result");
    QTest::newRow("enter in a field") << QString() << int(Qt::Key_Return) << int(QDialog::Accepted);
    QTest::newRow("enter on cancel")
        << QStringLiteral("取消") << int(Qt::Key_Return) << int(QDialog::Rejected);
    QTest::newRow("escape") << QString() << int(Qt::Key_Escape) << int(QDialog::Rejected);
}

void TestWindowChrome::dialogKeys()
{
    QFETCH(QString, focus);
    QFETCH(int, key);
    QFETCH(int, result);
    SampleDialog dialog;
    QSignalSpy finished(&dialog, &QDialog::finished);
    dialog.show();
    QVERIFY(dialog.width() >= 420 && dialog.width() <= 680);
    QVERIFY(dialog.height() < 300);
    QWidget *target = dialog.findChild<QLineEdit *>();
    const QList<QPushButton *> buttons = dialog.findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        if (button->text() == focus)
            target = button;
    }
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    target->setFocus();
    QTest::keyClick(target, static_cast<Qt::Key>(key));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(dialog.result(), result);
}

QTEST_MAIN(TestWindowChrome)
#include "tst_windowchrome.moc"
