#include "app/singleinstance.h"
#include "support/temptree.h"

#include <QElapsedTimer>
#include <QLocalSocket>
#include <QProcess>
#include <QtTest>

#include <signal.h>

using core::AppMode;

class TestSingleInstance : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_tree = std::make_unique<TempTree>();
        m_serverName = m_tree->path(QStringLiteral("server"));
        m_lockPath = m_tree->path(QStringLiteral("test.lock"));
    }

    void names()
    {
        const QString name = QStringLiteral("morvane");
        QCOMPARE(buildLockFilePath(AppMode::normal, name, QStringLiteral("/x")),
                 QStringLiteral("/x/morvane_normal.lock"));
        QCOMPARE(buildLockFilePath(AppMode::livecd, name),
                 QDir::tempPath() + QStringLiteral("/morvane_livecd.lock"));
        QCOMPARE(buildServerName(AppMode::normal, name), QStringLiteral("morvane_normal_ipc"));
        QCOMPARE(buildServerName(AppMode::livecd, name), QStringLiteral("morvane_livecd_ipc"));
    }

    void secondIsRefused()
    {
        SingleInstance second(m_lockPath, m_serverName);
        QElapsedTimer clock;
        clock.start();
        second.notifyRunningInstance(); // nobody answers
        QVERIFY(clock.elapsed() < 10000);
        {
            SingleInstance first(m_lockPath, m_serverName);
            QVERIFY(first.tryLock());
            clock.start();
            QVERIFY(!second.tryLock());
            QVERIFY2(clock.elapsed() < 10000, "must not wait for the lock");

            m_tree->file(QStringLiteral("server")); // a socket left over by a crash
            first.listen();
            QSignalSpy shown(&first, &SingleInstance::showRequested);
            second.notifyRunningInstance();
            second.notifyRunningInstance();
            QTRY_COMPARE(shown.count(), 2);
        }
        QVERIFY(second.tryLock());

        SingleInstance nowhere(m_tree->path(QStringLiteral("none/test.lock")), m_serverName);
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("lock file could not be made")));
        QVERIFY(!nowhere.tryLock());
    }

    void anyConnectionShows_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("hangsUp");
        QTest::addColumn<int>("silentWaitMs");

        constexpr int never = 3600 * 1000;
        QTest::newRow("show") << QByteArrayLiteral("show") << false << never;
        QTest::newRow("show and hang up") << QByteArrayLiteral("show") << true << never;
        QTest::newRow("another word") << QByteArrayLiteral("x") << false << never;
        QTest::newRow("hangs up without a word") << QByteArray() << true << never;
        QTest::newRow("says nothing") << QByteArray() << false << 200;
    }

    void anyConnectionShows()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, hangsUp);
        QFETCH(int, silentWaitMs);
        SingleInstance instance(m_lockPath, m_serverName);
        instance.setSilentWait(silentWaitMs);
        instance.listen();
        QSignalSpy shown(&instance, &SingleInstance::showRequested);
        QElapsedTimer clock;
        clock.start();
        QLocalSocket socket;
        socket.connectToServer(m_serverName);
        QVERIFY(socket.waitForConnected(1000));
        socket.write(bytes);
        socket.flush();
        if (hangsUp)
            socket.disconnectFromServer();
        int turns = 0; // of the event loop
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, this, [&turns] { ++turns; });
        ticker.start(10);
        QTRY_COMPARE(shown.count(), 1);
        if (bytes.isEmpty() && !hangsUp) {
            QVERIFY(clock.elapsed() >= silentWaitMs);
            QVERIFY2(turns > 0, "a silent sender must not block the window");
        }

        if (!hangsUp)
            socket.write("again");
        // With its connection gone, nothing more can come of it.
        QTRY_VERIFY(instance.findChildren<QLocalSocket *>().isEmpty());
        QCOMPARE(shown.count(), 1);
    }

    void secondStartRaisesTheFirst()
    {
        const QString mode = QStringLiteral("normal");
        const auto first = start(mode);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(serverPath(mode)), 15000);
        QVERIFY(QFile::exists(m_tree->path(QStringLiteral("morvane_normal.lock"))));
        QCOMPARE(shownCount(), 0);

        const auto second = start(mode);
        QVERIFY(second->waitForFinished(15000));
        QCOMPARE(second->exitStatus(), QProcess::NormalExit);
        QCOMPARE(second->exitCode(), 0);
        QTRY_COMPARE(shownCount(), 1);
        QCOMPARE(first->state(), QProcess::Running);

        // The second one had recorded its environment before it looked at the lock.
        const QByteArray text = log();
        QCOMPARE(text.count("[INFO] App mode: \"normal\""), 2);
        QVERIFY(text.lastIndexOf("[INFO] Env LC_ALL=") <
                text.indexOf("[WARN] Another instance is already running, notifying it to show "
                             "window"));

        QLocalSocket silent;
        silent.connectToServer(serverPath(mode));
        QVERIFY(silent.waitForConnected(1000));
        QTRY_COMPARE(shownCount(), 2);
    }

    void modesRunSideBySide()
    {
        const auto normal = start(QStringLiteral("normal"));
        const auto livecd = start(QStringLiteral("livecd"));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(serverPath(QStringLiteral("normal"))), 15000);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(serverPath(QStringLiteral("livecd"))), 15000);
        QCOMPARE(normal->state(), QProcess::Running);
        QCOMPARE(livecd->state(), QProcess::Running);
        QVERIFY(!log().contains("Another instance"));
    }

    void startsAfterAKill()
    {
        const QString mode = QStringLiteral("livecd");
        const auto first = start(mode);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(serverPath(mode)), 15000);
        QCOMPARE(::kill(static_cast<pid_t>(first->processId()), SIGKILL), 0);
        QVERIFY(first->waitForFinished());
        QVERIFY(QFile::exists(serverPath(mode))); // left over, like the lock

        const auto next = start(mode);
        QLocalSocket socket;
        const auto answers = [&] {
            socket.abort();
            socket.connectToServer(serverPath(mode));
            return socket.waitForConnected(100);
        };
        QTRY_VERIFY_WITH_TIMEOUT(answers(), 15000);
        QTRY_VERIFY(shownCount() > 0);
        QCOMPARE(next->state(), QProcess::Running);
        QVERIFY(!log().contains("Another instance"));
    }

private:
    struct KillAtEnd
    {
        void operator()(QProcess *process) const
        {
            process->kill();
            process->waitForFinished();
            delete process;
        }
    };

    // Starts the real program with the case's own home and temporary folder.
    std::unique_ptr<QProcess, KillAtEnd> start(const QString &mode) const
    {
        std::unique_ptr<QProcess, KillAtEnd> process(new QProcess);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), m_tree->path());
        environment.insert(QStringLiteral("TMPDIR"), m_tree->path());
        process->setProcessEnvironment(environment);
        process->setProcessChannelMode(QProcess::ForwardedChannels);
        process->start(QStringLiteral(MORVANE_PROGRAM), {QStringLiteral("--mode"), mode});
        return process;
    }

    QByteArray log() const
    {
        QFile file(m_tree->path(QStringLiteral(".config/morvane/logs/morvane_gui.log")));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    int shownCount() const
    {
        return log().count("[MainWindow] shown at the request of another start");
    }

    QString serverPath(const QString &mode) const
    {
        return m_tree->path(QStringLiteral("morvane_%1_ipc").arg(mode));
    }

    std::unique_ptr<TempTree> m_tree;
    QString m_serverName;
    QString m_lockPath;
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
