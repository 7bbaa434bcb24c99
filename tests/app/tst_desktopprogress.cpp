#include "app/desktopprogress.h"
#include "ui/common/longwork.h"

#include <QApplication>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

using ui::common::LongWork;

namespace {

constexpr int answerMs = 20000;

/// A session bus of the test's own, and what goes over it.
class PrivateBus
{
public:
    bool start()
    {
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--session"), QStringLiteral("--nofork"),
                        QStringLiteral("--print-address")});
        if (!m_daemon.waitForReadyRead(answerMs))
            return false;
        const QByteArray address = m_daemon.readLine().trimmed();
        qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        m_monitor.start(QStringLiteral("dbus-monitor"),
                        {QStringLiteral("--address"), QString::fromLatin1(address),
                         QStringLiteral("interface='com.canonical.Unity.LauncherEntry'"),
                         QStringLiteral("interface='org.freedesktop.Notifications'")});
        // Its own acquisition of a name is the first thing that a monitor sees.
        return m_monitor.waitForReadyRead(answerMs);
    }

    ~PrivateBus()
    {
        for (QProcess *process : {&m_monitor, &m_daemon}) {
            process->kill();
            process->waitForFinished();
        }
    }

    /// All that came so far, without runs of blanks.
    QString heard()
    {
        m_heard += QString::fromUtf8(m_monitor.readAllStandardOutput());
        return m_heard.simplified();
    }

private:
    QProcess m_daemon;
    QProcess m_monitor;
    QString m_heard;
};

} // namespace

/// What the desktop is told of long work, as it goes over the session bus.
class TestDesktopProgress : public QObject
{
    Q_OBJECT

private slots:
    void timeLeft_data();
    void timeLeft();
    void severalAtOnce();
    void messages();
};

void TestDesktopProgress::timeLeft_data()
{
    QTest::addColumn<double>("fraction");
    QTest::addColumn<qint64>("elapsedMs");
    QTest::addColumn<QString>("text");
    QTest::newRow("too early") << 0.5 << qint64(1000) << QString();
    QTest::newRow("too little") << 0.001 << qint64(60000) << QString();
    QTest::newRow("done") << 1.0 << qint64(60000) << QString();
    QTest::newRow("seconds") << 0.5 << qint64(30000) << QStringLiteral("剩余不到 1 分钟");
    QTest::newRow("minutes") << 0.25 << qint64(60000) << QStringLiteral("剩余约 3 分钟");
    QTest::newRow("hours") << 0.1 << qint64(3600000) << QStringLiteral("剩余约 9 小时");
}

void TestDesktopProgress::timeLeft()
{
    QFETCH(double, fraction);
    QFETCH(qint64, elapsedMs);
    QTEST(ui::common::timeLeftText(fraction, elapsedMs), "text");
}

void TestDesktopProgress::severalAtOnce()
{
    QSignalSpy fractions(ui::common::LongWorkBoard::instance(),
                         &ui::common::LongWorkBoard::fractionChanged);
    const auto last = [&fractions] {
        return fractions.last().first().toDouble();
    };
    LongWork scan(QStringLiteral("甲"), nullptr);
    auto *clean = new LongWork(QStringLiteral("乙"), nullptr);
    scan.setFraction(0.9); // not started yet
    QVERIFY(fractions.isEmpty());
    scan.start();
    scan.setFraction(0.5);
    scan.setFraction(0.4);
    QCOMPARE(last(), 0.5);
    clean->start();
    QCOMPARE(last(), 0.0);
    clean->setFraction(0.75);
    QCOMPARE(last(), 0.5);
    scan.finish();
    QCOMPARE(last(), 0.75);
    delete clean; // its page has gone
    QVERIFY(last() < 0.0);
}

void TestDesktopProgress::messages()
{
    for (const char *tool : {"dbus-daemon", "dbus-monitor", "gdbus"}) {
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            QSKIP("no tools of the message bus here");
    }
    PrivateBus bus;
    QVERIFY(bus.start());
    DesktopProgress progress(nullptr);
    bool isInFront = true;
    progress.setAttentionProbe([&isInFront] { return isInFront; });
    LongWork scan(QStringLiteral("空间分析"), nullptr);
    scan.start();
    QTRY_VERIFY_WITH_TIMEOUT(
        bus.heard().contains(
            QStringLiteral("interface=com.canonical.Unity.LauncherEntry; member=Update string "
                           "\"application://org.example.morvane.desktop\" array [ dict entry( "
                           "string \"progress\" variant double 0 ) dict entry( string "
                           "\"progress-visible\" variant boolean true ) ]")),
        answerMs);
    scan.setFraction(0.25);
    QTRY_VERIFY_WITH_TIMEOUT(bus.heard().contains(QStringLiteral("variant double 0.25")), answerMs);
    // Seen in the window, so nothing is said; then it ends out of sight.
    scan.finish(QStringLiteral("看得见"));
    QTRY_VERIFY_WITH_TIMEOUT(
        bus.heard().contains(QStringLiteral("\"progress-visible\" variant boolean false")),
        answerMs);
    isInFront = false;
    scan.start();
    scan.finish(QStringLiteral("扫描'完成'，\n发现 3 个文件"));
    QTRY_VERIFY_WITH_TIMEOUT(
        bus.heard().contains(QStringLiteral("member=Notify string \"墨川归档\" uint32 0 string "
                                            "\"morvane\" string \"空间分析\" string "
                                            "\"扫描'完成'， 发现 3 个文件\" array [ ] array [ ] "
                                            "int32 -1")),
        answerMs);
    QVERIFY(!bus.heard().contains(QStringLiteral("看得见")));
}

QTEST_MAIN(TestDesktopProgress)
#include "tst_desktopprogress.moc"
