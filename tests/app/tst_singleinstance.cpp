#include "app/singleinstance.h"

#include <QElapsedTimer>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <signal.h>

using core::AppMode;

Q_DECLARE_METATYPE(core::AppMode)

namespace {

const char shownLine[] = "[MainWindow] shown at the request of another start";

QString socketPath(const QString &directory, const QString &serverName)
{
    return QDir(directory).filePath(serverName);
}

} // namespace

class TestSingleInstance : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void names_data();
    void names();
    void secondIsRefused();
    void anyConnectionShows_data();
    void anyConnectionShows();
    void leftoverSocket();
    void nobodyAnswers();
    void lockCannotBeMade();
    void secondStartRaisesTheFirst();
    void modesRunSideBySide();
    void startsAfterAKill();

private:
    // Starts the real program with the case's own home and temporary folder.
    std::unique_ptr<QProcess> start(const QString &mode);
    QByteArray log() const;
    int shownCount() const { return log().count(shownLine); }
    QString serverPath(const QString &mode) const
    {
        return socketPath(m_directory->path(), QStringLiteral("morvane_%1_ipc").arg(mode));
    }

    std::unique_ptr<QTemporaryDir> m_directory;
    QString m_serverName;
    QString m_lockPath;
};

void TestSingleInstance::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
    m_serverName = socketPath(m_directory->path(), QStringLiteral("server"));
    m_lockPath = m_directory->filePath(QStringLiteral("test.lock"));
}

void TestSingleInstance::cleanup()
{
    m_directory.reset();
}

std::unique_ptr<QProcess> TestSingleInstance::start(const QString &mode)
{
    auto process = std::make_unique<QProcess>();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), m_directory->path());
    environment.insert(QStringLiteral("TMPDIR"), m_directory->path());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    process->setProcessEnvironment(environment);
    process->setProcessChannelMode(QProcess::ForwardedChannels);
    process->start(QStringLiteral(MORVANE_PROGRAM), {QStringLiteral("--mode"), mode});
    return process;
}

QByteArray TestSingleInstance::log() const
{
    QFile file(m_directory->filePath(QStringLiteral(".config/morvane/logs/morvane_gui.log")));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void TestSingleInstance::names_data()
{
    QTest::addColumn<AppMode>("mode");
    QTest::addColumn<QString>("application");
    QTest::addColumn<QString>("lock");
    QTest::addColumn<QString>("server");

    QTest::newRow("normal") << AppMode::normal << QStringLiteral("morvane")
                            << QStringLiteral("/tmp/morvane_normal.lock")
                            << QStringLiteral("morvane_normal_ipc");
    QTest::newRow("livecd") << AppMode::livecd << QStringLiteral("Morvane")
                            << QStringLiteral("/tmp/Morvane_livecd.lock")
                            << QStringLiteral("Morvane_livecd_ipc");
}

void TestSingleInstance::names()
{
    QFETCH(AppMode, mode);
    QFETCH(QString, application);
    QTEST(buildLockFilePath(mode, application, QStringLiteral("/tmp")), "lock");
    QTEST(buildServerName(mode, application), "server");
    QCOMPARE(QFileInfo(buildLockFilePath(mode, application)).path(), QDir::tempPath());
}

void TestSingleInstance::secondIsRefused()
{
    SingleInstance second(m_lockPath, m_serverName);
    {
        SingleInstance first(m_lockPath, m_serverName);
        QVERIFY(first.tryLock());
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!second.tryLock());
        QVERIFY2(clock.elapsed() < 500, "must not wait for the lock");

        first.listen();
        QSignalSpy shown(&first, &SingleInstance::showRequested);
        second.notifyRunningInstance();
        QTRY_COMPARE(shown.count(), 1);
    }
    QVERIFY(!QFile::exists(m_lockPath));
    QVERIFY(second.tryLock());
}

void TestSingleInstance::anyConnectionShows_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("hangsUp");
    QTest::addColumn<int>("leastMs");

    QTest::newRow("show") << QByteArrayLiteral("show") << false << 0;
    QTest::newRow("show and hang up") << QByteArrayLiteral("show") << true << 0;
    QTest::newRow("another word") << QByteArrayLiteral("x") << false << 0;
    QTest::newRow("hangs up without a word") << QByteArray() << true << 0;
    QTest::newRow("says nothing") << QByteArray() << false << 480;
}

void TestSingleInstance::anyConnectionShows()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, hangsUp);
    QFETCH(int, leastMs);
    SingleInstance instance(m_lockPath, m_serverName);
    instance.listen();
    QSignalSpy shown(&instance, &SingleInstance::showRequested);
    int ticks = 0;
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, this, [&ticks] { ++ticks; });
    ticker.start(10);

    QElapsedTimer clock;
    clock.start();
    QLocalSocket socket;
    socket.connectToServer(m_serverName);
    QVERIFY(socket.waitForConnected(1000));
    if (!bytes.isEmpty()) {
        socket.write(bytes);
        QVERIFY(socket.waitForBytesWritten(1000));
    }
    if (hangsUp)
        socket.disconnectFromServer();
    QTRY_COMPARE(shown.count(), 1);
    const qint64 elapsed = clock.elapsed();
    QVERIFY2(elapsed >= leastMs, qPrintable(QString::number(elapsed)));
    if (leastMs == 0)
        QVERIFY2(elapsed < 480, qPrintable(QString::number(elapsed)));
    else
        QVERIFY2(elapsed < leastMs + 700, qPrintable(QString::number(elapsed)));
    if (leastMs > 0)
        QVERIFY2(ticks > 10, "the event loop must go on while a silent sender is waited for");

    // Each connection counts once, whatever else it does.
    if (!hangsUp)
        socket.write("again");
    QTest::qWait(600); // longer than the wait for a silent sender
    QCOMPARE(shown.count(), 1);
}

void TestSingleInstance::leftoverSocket()
{
    QFile leftover(m_serverName);
    QVERIFY(leftover.open(QIODevice::WriteOnly));
    leftover.close();

    SingleInstance instance(m_lockPath, m_serverName);
    instance.listen();
    QSignalSpy shown(&instance, &SingleInstance::showRequested);
    for (int i = 0; i < 3; ++i)
        instance.notifyRunningInstance();
    QTRY_COMPARE(shown.count(), 3);
}

void TestSingleInstance::nobodyAnswers()
{
    QElapsedTimer clock;
    clock.start();
    SingleInstance(m_lockPath, m_serverName).notifyRunningInstance();
    QVERIFY(clock.elapsed() < 2500);
}

void TestSingleInstance::lockCannotBeMade()
{
    SingleInstance instance(m_directory->filePath(QStringLiteral("none/test.lock")), m_serverName);
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("lock file could not be made")));
    QVERIFY(!instance.tryLock());
}

void TestSingleInstance::secondStartRaisesTheFirst()
{
    const QString mode = QStringLiteral("normal");
    const auto first = start(mode);
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(serverPath(mode)), 15000);
    QVERIFY(QFile::exists(m_directory->filePath(QStringLiteral("morvane_normal.lock"))));
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

    // A sender without a word raises it too.
    QLocalSocket silent;
    silent.connectToServer(serverPath(mode));
    QVERIFY(silent.waitForConnected(1000));
    QTRY_COMPARE(shownCount(), 2);

    first->kill();
    QVERIFY(first->waitForFinished());
}

void TestSingleInstance::modesRunSideBySide()
{
    const auto normal = start(QStringLiteral("normal"));
    const auto livecd = start(QStringLiteral("livecd"));
    for (const char *word : {"normal", "livecd"}) {
        const QString mode = QString::fromLatin1(word);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(serverPath(mode)), 15000);
        QVERIFY(QFile::exists(m_directory->filePath(QStringLiteral("morvane_%1.lock").arg(mode))));
    }
    QCOMPARE(normal->state(), QProcess::Running);
    QCOMPARE(livecd->state(), QProcess::Running);
    QVERIFY(!log().contains("Another instance"));
    for (const auto *process : {&normal, &livecd}) {
        (*process)->kill();
        QVERIFY((*process)->waitForFinished());
    }
}

void TestSingleInstance::startsAfterAKill()
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
    next->kill();
    QVERIFY(next->waitForFinished());
}

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
