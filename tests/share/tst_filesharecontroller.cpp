#include "share/filesharecontroller.h"
#include "share/sharedefinition.h"
#include "support/fakeservice.h"
#include "support/rawdatabase.h"
#include "support/temptree.h"

#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>

#include <memory>
#include <thread>
#include <vector>

namespace {

const QString kSync = QStringLiteral("vault.syncShareFirewall");

int freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::Any) ? probe.serverPort() : 0;
}

bool answers(int port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), quint16(port));
    return socket.waitForConnected(2000);
}

// What a test sets up behind the controller's back, and looks at.
struct Fixture
{
    TempTree tree;
    QString dbPath = tree.path(QStringLiteral("fileshare.db"));
    testsupport::FakeService service;

    std::unique_ptr<FileShareController> start() const
    {
        return std::make_unique<FileShareController>(nullptr, dbPath, service.name());
    }
    std::unique_ptr<FileShareController> startOn(int port) const
    {
        FileShareDb db(dbPath);
        const bool ok = db.open() && db.saveDefault(QStringLiteral("port"), QString::number(port));
        return ok ? start() : nullptr;
    }
    QStringList column(const char *sql) const
    {
        return RawDatabase(dbPath).column(QLatin1String(sql));
    }
};

QString create(FileShareController *controller, const QString &password = QString(),
               int durationMin = 0)
{
    return controller->createShare({QStringLiteral("/data/文件.txt"), QStringLiteral("/")},
                                   password, durationMin, 4, QString());
}

QTimer *expiryTimer(FileShareController *controller)
{
    for (QTimer *timer : controller->findChildren<QTimer *>()) {
        if (timer->interval() == 30000)
            return timer;
    }
    return nullptr;
}

void logLine(FileShareController *controller, const QString &id, const char *action)
{
    controller->onAccessLoggedFromWorker(id, QStringLiteral("10.0.0.1"),
                                         QString::fromLatin1(action), QStringLiteral("/x"));
}

} // namespace

class TestFileShareController : public QObject
{
    Q_OBJECT

private slots:
    void runsAShareThroughItsLife();
    void editsAShare();
    void refusesWhatCannotBe();
    void keepsToOnePort();
    void setsThePort_data();
    void setsThePort();
    void takesUpEarlierShares_data();
    void takesUpEarlierShares();
    void stopsEarlierSharesWithoutAPort();
    void endsExpiredShares_data();
    void endsExpiredShares();
    void tellsTheFirewall();
    void livesWithoutTheFirewall_data();
    void livesWithoutTheFirewall();
    void changesDuringTheWaitCount();
    void endsDuringTheWait();
    void writesLogInBatches();
    void losesNoLines_data();
    void losesNoLines();
    void goesOnAfterAFailedBatch();
    void worksWithoutADatabase();
};

void TestFileShareController::runsAShareThroughItsLife()
{
    Fixture fixture;
    const int port = freePort();
    auto controller = fixture.startOn(port);
    QSignalSpy created(controller.get(), &FileShareController::shareCreated);
    QSignalSpy stopped(controller.get(), &FileShareController::shareStopped);
    QSignalSpy changed(controller.get(), &FileShareController::sessionListChanged);
    QVERIFY(!answers(port));

    const QString id = create(controller.get(), QStringLiteral("abc"), 5);
    QCOMPARE(id.size(), 12);
    QVERIFY(answers(port));
    const ShareSession session = controller->sessionInfo(id);
    QVERIFY(session.hasPassword);
    QCOMPARE(session.status, QStringLiteral("active"));
    QCOMPARE(session.accessMode, QStringLiteral("download"));
    QCOMPARE(session.port, port);
    QCOMPARE(session.expiresAt, session.createdAt + 300000);
    const QList<ShareRoot> roots = controller->sessionRoots(id);
    QCOMPARE(session.rootNames, QStringList({QStringLiteral("文件.txt"), QStringLiteral("/")}));
    QCOMPARE(roots.first().id.size(), 8);
    QVERIFY(controller->hasActiveShares() && !controller->canChangeSharePort());
    QCOMPARE(controller->lastUsedDefaults().value(QStringLiteral("max_clients")).toInt(), 4);
    QVERIFY(expiryTimer(controller.get())->isActive());
    QCOMPARE(controller->shareUrls(id).size(), FileShareController::localIpAddresses().size());
    for (const QString &url : controller->shareUrls(id))
        QVERIFY2(url.endsWith(QStringLiteral(":%1/s/%2/").arg(port).arg(id)), qPrintable(url));
    QVERIFY(controller->shareUrls(QStringLiteral("none")).isEmpty());
    QVERIFY(!controller->restartShare(id));

    controller->stopShare(id);
    QVERIFY(!answers(port));
    QCOMPARE(controller->sessionInfo(id).status, QStringLiteral("stopped"));
    QVERIFY(!expiryTimer(controller.get())->isActive());
    QVERIFY(controller->restartShare(id)); // at once, while the old server may still be there
    QVERIFY(answers(port));
    QVERIFY(controller->sessionInfo(id).hasPassword);
    QCOMPARE(controller->sessionRoots(id).first().id, roots.first().id);

    controller->removeSession(id);
    QVERIFY(!answers(port));
    QVERIFY(controller->allSessions().isEmpty());
    QVERIFY(fixture.column("SELECT root_id FROM share_roots").isEmpty());
    QCOMPARE(created.count(), 2);
    QCOMPARE(stopped.count(), 2);
    QCOMPARE(changed.count(), 5); // removal of an active share: its stop, and itself
}

void TestFileShareController::editsAShare()
{
    Fixture fixture;
    auto controller = fixture.startOn(freePort());
    const QString id = create(controller.get(), QStringLiteral("abc"), 5);
    const QList<ShareRoot> oldRoots = controller->sessionRoots(id);
    logLine(controller.get(), id, "download");

    QVERIFY(controller->updateAndRestartShare(id, {QStringLiteral("/new")}, QString(), 0, 9,
                                              QStringLiteral("upload")));
    const ShareSession session = controller->sessionInfo(id);
    QCOMPARE(session.status, QStringLiteral("active"));
    QCOMPARE(session.accessMode, QStringLiteral("upload"));
    QCOMPARE(session.totalDownloads, 1);
    QVERIFY(!session.hasPassword);
    QCOMPARE(session.expiresAt, 0);
    QCOMPARE(controller->accessLogCount(id, QString()), 0);
    QCOMPARE(controller->sessionRoots(id).size(), 1);
    QVERIFY(controller->sessionRoots(id).first().id != oldRoots.first().id);
    QVERIFY(answers(controller->sharePort()));
}

void TestFileShareController::refusesWhatCannotBe()
{
    Fixture fixture;
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any));
    auto controller = fixture.startOn(other.serverPort());
    QVERIFY(controller->createShare({}, QString(), 0, 1, QString()).isEmpty());
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("ensureServerRunning failed: 端口 %1 "
                                                           "监听失败: .+")
                                                .arg(other.serverPort())));
    QVERIFY(create(controller.get()).isEmpty());
    QVERIFY(controller->allSessions().isEmpty());
    other.close();

    const QString id = create(controller.get());
    QVERIFY(!id.isEmpty());
    QVERIFY(!controller->updateAndRestartShare(id, {}, QString(), 0, 1, QString()));
    QVERIFY(!controller->updateAndRestartShare(QStringLiteral("none"), {QStringLiteral("/a")},
                                               QString(), 0, 1, QString()));
    QVERIFY(!controller->restartShare(QStringLiteral("none")));
    QVERIFY(controller->hasActiveShares());

    // A step that fails takes back the ones before it: the share keeps its roots.
    RawDatabase(fixture.dbPath)
        .rows(QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON share_roots WHEN "
                             "new.local_path='/bad' BEGIN SELECT RAISE(ABORT,'no'); END"));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("addRoot failed: .*no")));
    QVERIFY(!controller->updateAndRestartShare(id, {QStringLiteral("/a"), QStringLiteral("/bad")},
                                               QString(), 0, 1, QString()));
    QCOMPARE(controller->sessionRoots(id).size(), 2);
    QCOMPARE(controller->sessionInfo(id).status, QStringLiteral("stopped"));
    QVERIFY(!answers(other.serverPort()));
}

void TestFileShareController::keepsToOnePort()
{
    Fixture fixture;
    const int port = freePort();
    auto controller = fixture.startOn(port);
    const QString first = create(controller.get());
    FileShareDb db(fixture.dbPath);
    QVERIFY(db.open());
    QVERIFY(db.saveDefault(QStringLiteral("port"), QStringLiteral("1025")));
    const QString second = create(controller.get());
    QCOMPARE(controller->sessionInfo(second).port, port);
    controller->stopShare(first);
    QVERIFY(answers(port));
    controller->stopAllShares();
    QVERIFY(!answers(port));
    QCOMPARE(controller->sharePort(), 1025);
    QCOMPARE(controller->activeSessions().size(), 0);
}

void TestFileShareController::setsThePort_data()
{
    QTest::addColumn<int>("port");
    QTest::addColumn<bool>("sharing");
    QTest::addColumn<QString>("error");
    const QString range = QStringLiteral("端口范围必须在 1024 到 65535 之间");
    QTest::newRow("too low") << 1023 << false << range;
    QTest::newRow("too high") << 65536 << false << range;
    QTest::newRow("lowest") << 1024 << false << QString();
    QTest::newRow("highest") << 65535 << false << QString();
    QTest::newRow("the same while sharing") << 0 << true << QString();
    QTest::newRow("another while sharing")
        << 1024 << true << QStringLiteral("当前仍有共享正在运行，请先停止所有共享后再修改端口");
}

void TestFileShareController::setsThePort()
{
    QFETCH(int, port);
    QFETCH(bool, sharing);
    QFETCH(QString, error);
    Fixture fixture;
    auto controller = fixture.startOn(freePort());
    const int before = controller->sharePort();
    if (port == 0)
        port = before;
    if (sharing)
        QVERIFY(!create(controller.get()).isEmpty());
    QSignalSpy changed(controller.get(), &FileShareController::sessionListChanged);
    QString text;
    QCOMPARE(controller->setSharePort(port, &text), error.isEmpty());
    QCOMPARE(text, error);
    QCOMPARE(controller->sharePort(), error.isEmpty() ? port : before);
    QCOMPARE(changed.count(), error.isEmpty() ? 1 : 0);
}

// Sessions as "id offset-of-port expiry": oldest first.
void TestFileShareController::takesUpEarlierShares_data()
{
    QTest::addColumn<QStringList>("earlier");
    QTest::addColumn<QString>("active");
    QTest::addColumn<QString>("stopped");
    QTest::addColumn<QString>("expired");
    QTest::newRow("nothing") << QStringList() << ""
                             << ""
                             << "";
    QTest::newRow("all on one port")
        << QStringList{QStringLiteral("a 0 none"), QStringLiteral("b 0 later")} << "a b"
        << ""
        << "";
    QTest::newRow("the newest wins")
        << QStringList{QStringLiteral("a 1 none"), QStringLiteral("b 0 none")} << "b"
        << "a"
        << "";
    QTest::newRow("the newest has expired")
        << QStringList{QStringLiteral("a 0 none"), QStringLiteral("b 1 over")} << "a"
        << ""
        << "b";
    QTest::newRow("all have expired")
        << QStringList{QStringLiteral("a 0 over"), QStringLiteral("b 1 over")} << ""
        << ""
        << "a b";
}

void TestFileShareController::takesUpEarlierShares()
{
    QFETCH(QStringList, earlier);
    QFETCH(QString, active);
    Fixture fixture;
    const int ports[] = {freePort(), freePort()};
    {
        FileShareDb db(fixture.dbPath);
        QVERIFY(db.open());
        qint64 created = QDateTime::currentMSecsSinceEpoch() - 100000;
        for (const QString &text : earlier) {
            const QStringList parts = text.split(QLatin1Char(' '));
            ShareSession session =
                shareSessionFor(parts.at(0), {}, ports[parts.at(1).toInt()], ++created);
            if (parts.at(2) != QLatin1String("none"))
                session.expiresAt = parts.at(2) == QLatin1String("over") ? created : created * 2;
            QVERIFY(db.createSession(session, QString()));
        }
    }
    auto controller = fixture.start();
    for (const char *status : {"active", "stopped", "expired"}) {
        const QString ids =
            RawDatabase(fixture.dbPath)
                .column(QStringLiteral("SELECT session_id FROM share_sessions WHERE status=? "
                                       "ORDER BY session_id"),
                        {QString::fromLatin1(status)})
                .join(QLatin1Char(' '));
        QTEST(ids, status);
    }
    QCOMPARE(answers(ports[0]), !active.isEmpty());
    QVERIFY(!answers(ports[1]));
    QCOMPARE(expiryTimer(controller.get())->isActive(), !active.isEmpty());
    QCOMPARE(controller->sharePort(), active.isEmpty() ? 9800 : ports[0]);
    controller.reset();
    QVERIFY(fixture.column("SELECT 1 FROM share_sessions WHERE status='active'").isEmpty());
}

void TestFileShareController::stopsEarlierSharesWithoutAPort()
{
    Fixture fixture;
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any));
    {
        FileShareDb db(fixture.dbPath);
        QVERIFY(db.open());
        for (int i = 0; i < 2; ++i) // the older one on a port that is free
            QVERIFY(db.createSession(
                shareSessionFor(QString::number(i), {}, i ? other.serverPort() : freePort(), i + 1),
                QString()));
    }
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("auto-restore listen failed: 端口")));
    auto controller = fixture.start();
    QCOMPARE(fixture.column("SELECT status FROM share_sessions"),
             QStringList({QStringLiteral("stopped"), QStringLiteral("stopped")}));
    QVERIFY(!controller->hasActiveShares());
}

void TestFileShareController::endsExpiredShares_data()
{
    QTest::addColumn<bool>("byWorker");
    QTest::newRow("by the timer") << false;
    QTest::newRow("by its first visitor") << true;
}

void TestFileShareController::endsExpiredShares()
{
    QFETCH(bool, byWorker);
    Fixture fixture;
    auto controller = fixture.startOn(freePort());
    const int port = controller->sharePort();
    const QString kept = create(controller.get(), QString(), 1);
    const QString over = create(controller.get(), QString(), 1);
    const QString without = create(controller.get());
    RawDatabase(fixture.dbPath)
        .rows(QStringLiteral("UPDATE share_sessions SET expires_at=5 WHERE session_id=?"), {over});

    QSignalSpy expired(controller.get(), &FileShareController::shareExpired);
    QSignalSpy changed(controller.get(), &FileShareController::sessionListChanged);
    QTimer *timer = expiryTimer(controller.get());
    const auto look = [&](const QString &id) {
        if (byWorker)
            controller->onSessionExpiredFromWorker(id);
        else
            timer->start(1);
    };
    look(over);
    QTRY_COMPARE(expired.count(), 1);
    look(over); // comes to nothing
    QCOMPARE(expired.first().first().toString(), over);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(controller->sessionInfo(over).status, QStringLiteral("expired"));
    QVERIFY(answers(port) && timer->isActive());

    controller->stopShare(without);
    RawDatabase(fixture.dbPath)
        .rows(QStringLiteral("UPDATE share_sessions SET expires_at=5 WHERE session_id=?"), {kept});
    look(kept);
    QTRY_COMPARE(expired.count(), 2);
    QTRY_VERIFY(!answers(port));
    QVERIFY(!timer->isActive());
    QVERIFY(controller->restartShare(over));
    QVERIFY(answers(port));
}

void TestFileShareController::tellsTheFirewall()
{
    Fixture fixture;
    QVERIFY(fixture.service.start());
    fixture.service.reply(kSync, {});
    auto controller = fixture.startOn(freePort());
    const auto told = [&fixture] {
        const QJsonObject params = fixture.service.lastParams(kSync);
        return qMakePair(params.value(QStringLiteral("active")).toBool(),
                         params.value(QStringLiteral("port")).toInt());
    };
    const int port = controller->sharePort();
    QCOMPARE(told(), qMakePair(false, port));
    const QString id = create(controller.get());
    QCOMPARE(told(), qMakePair(true, port));
    controller->stopShare(id);
    QCOMPARE(told(), qMakePair(false, port));
    QString error;
    QVERIFY(controller->setSharePort(1024, &error));
    QCOMPARE(told(), qMakePair(false, 1024));
    QVERIFY(controller->setSharePort(port, &error));
    QVERIFY(controller->restartShare(id));
    QCOMPARE(told(), qMakePair(true, port));
    controller->stopAllShares();
    QCOMPARE(told(), qMakePair(false, port));
    QCOMPARE(fixture.service.count(kSync), 7);
    QTRY_COMPARE(fixture.service.clientCount(), 0);
}

void TestFileShareController::livesWithoutTheFirewall_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("message");
    QTest::newRow("no service") << "none"
                                << "未连接到文件保护服务，无法同步麒麟系统防火墙规则";
    QTest::newRow("silence") << "hold"
                             << "同步麒麟系统防火墙规则超时";
    QTest::newRow("refusal") << "refuse"
                             << "不支持";
    QTest::newRow("refusal without a word") << "mute"
                                            << "同步麒麟系统防火墙规则失败";
    QTest::newRow("error") << "error"
                           << "坏了";
    QTest::newRow("end of the service") << "drop"
                                        << "";
}

void TestFileShareController::livesWithoutTheFirewall()
{
    QFETCH(QString, answer);
    QFETCH(QString, message);
    Fixture fixture;
    auto &service = fixture.service;
    service.reply(kSync, {});
    QVERIFY(service.start());
    auto controller = fixture.startOn(freePort());
    const QJsonObject refusal{
        {QStringLiteral("success"), false},
        {QStringLiteral("message"), answer == QLatin1String("mute") ? QString() : message}};
    if (answer == QLatin1String("none"))
        service.stop();
    else if (answer == QLatin1String("hold") || answer == QLatin1String("drop"))
        service.hold(kSync);
    else if (answer == QLatin1String("error"))
        service.fail(kSync, 500, message);
    else
        service.reply(kSync, refusal);
    if (answer == QLatin1String("drop"))
        connect(&service, &services::ServiceHost::requestReceived, &service,
                &services::ServiceHost::dropClients, Qt::QueuedConnection);

    QTest::ignoreMessage(
        QtWarningMsg,
        QRegularExpression(QStringLiteral("^\\[FileShareController\\] syncShareFirewallState "
                                          "failed after createShare: %1")
                               .arg(message)));
    QElapsedTimer clock;
    clock.start();
    const QString id = create(controller.get());
    QVERIFY(clock.elapsed() < 3700 + 1000);
    QCOMPARE(controller->sessionInfo(id).status, QStringLiteral("active"));
    QVERIFY(answers(controller->sharePort()));
    service.reply(kSync, {});
}

void TestFileShareController::changesDuringTheWaitCount()
{
    Fixture fixture;
    QVERIFY(fixture.service.start());
    fixture.service.reply(kSync, {});
    auto controller = fixture.startOn(freePort());
    const int port = controller->sharePort();
    fixture.service.hold(kSync);
    QSignalSpy created(controller.get(), &FileShareController::shareCreated);

    // While the first answer is awaited, the share is taken away and another made and stopped.
    bool hasChanged = false;
    connect(
        &fixture.service, &services::ServiceHost::requestReceived, &fixture.service,
        [&] {
            if (!hasChanged) {
                hasChanged = true;
                controller->removeSession(controller->activeSessions().first().id);
                controller->stopShare(create(controller.get()));
            }
            QVERIFY(fixture.service.release(kSync, services::Reply::ok()));
        },
        Qt::QueuedConnection);
    const QString id = create(controller.get());
    QVERIFY(hasChanged);
    QVERIFY(controller->sessionInfo(id).id.isEmpty());
    QCOMPARE(controller->allSessions().size(), 1);
    for (const QList<QVariant> &arguments : created)
        QVERIFY(arguments.first().toString() != id);
    QCOMPARE(fixture.service.lastParams(kSync).value(QStringLiteral("active")).toBool(true), false);
    QVERIFY(!answers(port));
    fixture.service.disconnect(&fixture.service);
    fixture.service.reply(kSync, {});
}

void TestFileShareController::endsDuringTheWait()
{
    Fixture fixture;
    QVERIFY(fixture.service.start());
    fixture.service.reply(kSync, {});
    QPointer<FileShareController> controller(fixture.startOn(freePort()).release());
    const int port = controller->sharePort();
    fixture.service.hold(kSync);

    bool hasEnded = false;
    connect(
        &fixture.service, &services::ServiceHost::requestReceived, &fixture.service,
        [&] {
            if (!hasEnded) {
                hasEnded = true;
                QTimer::singleShot(0, &fixture.service, [&] {
                    // the end waits for an answer too, and nothing can be begun in it
                    QVERIFY(create(controller).isEmpty());
                    fixture.service.reply(kSync, {}); // the first request stays without
                });
                delete controller.data();
            }
        },
        Qt::QueuedConnection);
    QElapsedTimer clock;
    clock.start();
    const QString id = create(controller);
    QVERIFY(hasEnded && controller.isNull());
    QVERIFY(clock.elapsed() < 2000);
    QCOMPARE(fixture.service.lastParams(kSync).value(QStringLiteral("active")).toBool(true), false);
    QCOMPARE(fixture.column("SELECT session_id||status FROM share_sessions"),
             QStringList(id + QStringLiteral("stopped")));
    QVERIFY(!answers(port));
}

void TestFileShareController::writesLogInBatches()
{
    Fixture fixture;
    auto controller = fixture.startOn(freePort());
    const QString id = create(controller.get());
    const QString other = create(controller.get());
    QSignalSpy updated(controller.get(), &FileShareController::accessLogUpdated);

    constexpr int kThreads = 4;
    constexpr int kLines = 600;
    FileShareController *target = controller.get();
    std::vector<std::thread> workers;
    for (int i = 0; i < kThreads; ++i)
        workers.emplace_back([target, id, other] {
            for (int line = 0; line < kLines; ++line) {
                const char *action = line % 2 ? "download" : "browse";
                const QString session = line % 3 ? id : other;
                QMetaObject::invokeMethod(
                    target, [=] { logLine(target, session, action); }, Qt::QueuedConnection);
            }
        });
    for (std::thread &worker : workers)
        worker.join();
    const auto written = [&fixture] {
        return fixture.column("SELECT COUNT(*) FROM share_access_log").first().toInt();
    };
    QTRY_COMPARE(written(), kThreads * kLines);
    QTRY_VERIFY(updated.count() > 0);
    QVERIFY2(updated.count() <= kThreads * kLines / 20,
             qPrintable(QString::number(updated.count())));
    QCOMPARE(controller->accessLogCount(id, QStringLiteral("download")), kThreads * 200);
    QCOMPARE(controller->sessionInfo(id).totalDownloads, kThreads * 200);
    QCOMPARE(controller->sessionInfo(other).totalDownloads, kThreads * 100);
}

void TestFileShareController::losesNoLines_data()
{
    QTest::addColumn<QString>("what");
    for (const char *what : {"read", "stop", "end", "line of a removed share"})
        QTest::newRow(what) << QString::fromLatin1(what);
}

void TestFileShareController::losesNoLines()
{
    QFETCH(QString, what);
    Fixture fixture;
    auto controller = fixture.startOn(freePort());
    const QString id = create(controller.get());
    QSignalSpy updated(controller.get(), &FileShareController::accessLogUpdated);
    logLine(controller.get(), id, "upload_ok");
    if (what.startsWith(QLatin1String("line"))) {
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("addAccessLog failed: .*FOREIGN")));
        logLine(controller.get(), QStringLiteral("gone"), "download");
    }
    logLine(controller.get(), id, "browse");
    QCOMPARE(updated.count(), 0);

    if (what == QLatin1String("stop"))
        controller->stopShare(id);
    else if (what == QLatin1String("end"))
        controller.reset();
    else
        QCOMPARE(controller->accessLog(id, QString(), 0, 10).size(), 2);
    QCOMPARE(fixture.column("SELECT action FROM share_access_log"),
             QStringList({QStringLiteral("upload_ok"), QStringLiteral("browse")}));
    QCOMPARE(fixture.column("SELECT total_uploads FROM share_sessions"),
             QStringList(QStringLiteral("1")));
    if (controller)
        QTRY_COMPARE(updated.mid(0).count({id}), 1);
}

// As SQLite does when the disk is full, the database ends the transaction by itself.
void TestFileShareController::goesOnAfterAFailedBatch()
{
    Fixture fixture;
    auto controller = fixture.startOn(freePort());
    const QString id = create(controller.get());
    RawDatabase(fixture.dbPath)
        .rows(QStringLiteral("CREATE TRIGGER full BEFORE INSERT ON share_access_log WHEN "
                             "new.action='bad' BEGIN SELECT RAISE(ROLLBACK,'full'); END"));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                           "addAccessLog failed: .*full.*\\(3 lines\\)$")));
    for (const char *action : {"download", "bad", "download"})
        logLine(controller.get(), id, action);
    QCOMPARE(controller->accessLogCount(id, QString()), 0);
    QCOMPARE(controller->sessionInfo(id).totalDownloads, 0);
    logLine(controller.get(), id, "download");
    QCOMPARE(controller->accessLogCount(id, QString()), 1);
    QCOMPARE(controller->sessionInfo(id).totalDownloads, 1);
    QVERIFY(!create(controller.get()).isEmpty());
}

void TestFileShareController::worksWithoutADatabase()
{
    Fixture fixture;
    fixture.dbPath = fixture.tree.file("damaged.db", QByteArray(5000, 'x'));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("DB open failed: .+")));
    auto controller = fixture.start();
    QVERIFY(controller->allSessions().isEmpty());
    QCOMPARE(controller->sharePort(), 9800);
    QString error;
    QVERIFY(!controller->setSharePort(freePort(), &error));
    QVERIFY(!error.isEmpty());
    logLine(controller.get(), QStringLiteral("s"), "download");
    controller->stopShare(QStringLiteral("s"));
    controller->removeSession(QStringLiteral("s"));
    controller->stopAllShares();
}

QTEST_GUILESS_MAIN(TestFileShareController)
#include "tst_filesharecontroller.moc"
