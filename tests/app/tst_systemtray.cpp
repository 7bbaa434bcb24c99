#include "app/systemtray.h"

#include <QAction>
#include <QMenu>
#include <QtTest>

class TestSystemTray : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_asked = 0; }

    void givesUpAfterSixAttempts()
    {
        SystemTray tray(probe(&m_never));
        const QString line = QStringLiteral(
            "^System tray init: attempt=1 available=false platform=offscreen xdg_session_type=\\S+ "
            "xdg_current_desktop=\\S+ desktop_session=\\S+$");
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(line));
        QTest::ignoreMessage(QtWarningMsg,
                             "System tray unavailable on attempt 5, scheduling retry in 7500 ms");
        QTest::ignoreMessage(QtWarningMsg, "System tray unavailable after 6 attempts, giving up");

        QVector<int> delays;
        tray.setup();
        for (QTimer *timer = timerOf(tray); timer->isActive() && delays.size() < 10;) {
            delays.append(timer->interval());
            const int before = m_asked;
            timer->setInterval(0); // let this wait end now
            QTRY_COMPARE(m_asked, before + 1);
        }
        QCOMPARE(delays, QVector<int>({1500, 3000, 4500, 6000, 7500}));
        QCOMPARE(m_asked, 6);
        QVERIFY(!tray.isVisible());
    }

    void trayThatComesLate()
    {
        bool available = false;
        SystemTray tray(probe(&available));
        tray.hide(); // nothing there yet
        tray.setup();
        QVERIFY(!tray.isVisible());

        available = true;
        QTest::ignoreMessage(QtInfoMsg, "System tray shown: visible=true");
        timerOf(tray)->setInterval(0);
        QTRY_VERIFY(tray.isVisible());
        tray.setup();
        tray.scheduleRetry(0);
        QVERIFY(!timerOf(tray)->isActive());
        QCOMPARE(m_asked, 2);
        tray.hide();
        QVERIFY(!tray.isVisible());
    }

    void scheduledRetry()
    {
        SystemTray tray(probe(&m_never));
        tray.scheduleRetry(60000);
        QCOMPARE(timerOf(tray)->interval(), 60000);
        tray.scheduleRetry(-5); // in place of the one that waits
        QCOMPARE(timerOf(tray)->interval(), 0);
        QTRY_COMPARE(m_asked, 1);
    }

    void menuAndClicks()
    {
        bool available = true;
        SystemTray tray(probe(&available));
        tray.setSharesActive(true); // before there is a menu
        tray.setup();
        auto *icon = tray.findChild<QSystemTrayIcon *>();
        QVERIFY(icon);
        QCOMPARE(icon->toolTip(), QStringLiteral("墨川归档"));

        QStringList texts;
        const QList<QAction *> actions = icon->contextMenu()->actions();
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
        for (int reason = QSystemTrayIcon::Unknown; reason <= QSystemTrayIcon::MiddleClick;
             ++reason)
            emit icon->activated(static_cast<QSystemTrayIcon::ActivationReason>(reason));
        QCOMPARE(toggle.count(), 2); // trigger and double click
        QCOMPARE(show.count() + quit.count(), 2);
    }

private:
    SystemTray::AvailabilityProbe probe(const bool *available)
    {
        return [this, available] {
            ++m_asked;
            return *available;
        };
    }
    static QTimer *timerOf(const SystemTray &tray)
    {
        return tray.findChild<QTimer *>(QStringLiteral("TrayRetryTimer"));
    }

    const bool m_never = false;
    int m_asked = 0;
};

QTEST_MAIN(TestSystemTray)
#include "tst_systemtray.moc"
