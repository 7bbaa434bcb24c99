#include "app/systemtray.h"

#include <QAction>
#include <QMenu>
#include <QtTest>

namespace {

QTimer *retryTimer(const SystemTray &tray)
{
    return tray.findChild<QTimer *>(QStringLiteral("TrayRetryTimer"));
}

QMenu *trayMenu()
{
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget *widget : widgets) {
        if (widget->objectName() == QLatin1String("TrayMenu"))
            return qobject_cast<QMenu *>(widget);
    }
    return nullptr;
}

} // namespace

class TestSystemTray : public QObject
{
    Q_OBJECT

private slots:
    void givesUpAfterSixAttempts();
    void trayThatComesLate();
    void scheduledRetry();
    void menu();
    void hiding();
};

void TestSystemTray::givesUpAfterSixAttempts()
{
    int asked = 0;
    SystemTray tray([&asked] {
        ++asked;
        return false;
    });
    QTimer *timer = retryTimer(tray);
    QVERIFY(timer && timer->isSingleShot());

    QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral(
                                        "^System tray init: attempt=1 available=false "
                                        "platform=offscreen xdg_session_type=\\S+ "
                                        "xdg_current_desktop=\\S+ desktop_session=\\S+$")));
    QTest::ignoreMessage(QtWarningMsg,
                         "System tray unavailable on attempt 1, scheduling retry in 1500 ms");
    QTest::ignoreMessage(QtWarningMsg,
                         "System tray unavailable on attempt 5, scheduling retry in 7500 ms");
    QTest::ignoreMessage(QtWarningMsg, "System tray unavailable after 6 attempts, giving up");

    QVector<int> delays;
    tray.setup();
    while (timer->isActive() && delays.size() < 10) {
        delays.append(timer->interval());
        const int before = asked;
        timer->setInterval(0); // let this wait end now
        QTRY_COMPARE(asked, before + 1);
    }
    QCOMPARE(delays, QVector<int>({1500, 3000, 4500, 6000, 7500}));
    QCOMPARE(asked, 6);
    QVERIFY(!tray.isVisible());
}

void TestSystemTray::trayThatComesLate()
{
    bool available = false;
    SystemTray tray([&available] { return available; });
    tray.setup();
    QVERIFY(!tray.isVisible());
    QVERIFY(!trayMenu());

    available = true;
    QTest::ignoreMessage(QtInfoMsg, "System tray shown: visible=true");
    retryTimer(tray)->setInterval(0);
    QTRY_VERIFY(tray.isVisible());

    // From here on nothing is asked or scheduled any more.
    available = false;
    tray.setup();
    tray.scheduleRetry(0);
    QVERIFY(!retryTimer(tray)->isActive());
    QVERIFY(tray.isVisible());
}

void TestSystemTray::scheduledRetry()
{
    int asked = 0;
    SystemTray tray([&asked] {
        ++asked;
        return false;
    });
    QTimer *timer = retryTimer(tray);
    tray.scheduleRetry(60000);
    QCOMPARE(timer->interval(), 60000);
    tray.scheduleRetry(-5); // in place of the one that waits
    QCOMPARE(timer->interval(), 0);
    QTRY_COMPARE(asked, 1);
}

void TestSystemTray::menu()
{
    SystemTray tray([] { return true; });
    tray.setSharesActive(true); // before there is a menu
    tray.setup();
    QMenu *menu = trayMenu();
    QVERIFY(menu);

    QStringList texts;
    const QList<QAction *> actions = menu->actions();
    for (const QAction *action : actions)
        texts.append(action->isSeparator() ? QStringLiteral("-") : action->text());
    QCOMPARE(texts.join(QLatin1Char('|')), QStringLiteral("正在分享文件|-|显示主窗口|-|退出"));
    QVERIFY(!actions.first()->isEnabled());
    tray.setSharesActive(false);
    QCOMPARE(actions.first()->text(), QStringLiteral("无文件分享"));

    QSignalSpy show(&tray, &SystemTray::showRequested);
    QSignalSpy toggle(&tray, &SystemTray::toggleRequested);
    QSignalSpy quit(&tray, &SystemTray::quitRequested);
    actions.at(2)->trigger();
    QCOMPARE(show.count(), 1);
    actions.at(4)->trigger();
    QCOMPARE(quit.count(), 1);
    QCOMPARE(toggle.count(), 0);

    auto *icon = tray.findChild<QSystemTrayIcon *>();
    QVERIFY(icon);
    QCOMPARE(icon->toolTip(), QStringLiteral("墨川归档"));
    QCOMPARE(icon->contextMenu(), menu);
    for (int reason = QSystemTrayIcon::Unknown; reason <= QSystemTrayIcon::MiddleClick; ++reason)
        emit icon->activated(static_cast<QSystemTrayIcon::ActivationReason>(reason));
    QCOMPARE(toggle.count(), 2); // trigger and double click
    QCOMPARE(show.count(), 1);
}

void TestSystemTray::hiding()
{
    SystemTray tray([] { return true; });
    tray.hide();
    QVERIFY(!tray.isVisible());
    tray.setup();
    QVERIFY(tray.isVisible());
    tray.hide();
    QVERIFY(!tray.isVisible());
}

QTEST_MAIN(TestSystemTray)
#include "tst_systemtray.moc"
