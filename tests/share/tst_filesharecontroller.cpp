#include "share/filesharecontroller.h"
#include "share/sharedefinition.h"
#include "support/fakeservice.h"
#include "support/freeport.h"
#include "support/rawdatabase.h"
#include "support/temptree.h"

#include <QJsonDocument>
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

QString operator""_s(const char *utf8, size_t size)
{
    return QString::fromUtf8(utf8, int(size));
}

const QString kSync = "vault.syncShareFirewall"_s;

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
    QString dbPath = tree.path("fileshare.db"_s);
    testsupport::FakeService service;

    std::unique_ptr<FileShareController> start() const
    {
        return std::make_unique<FileShareController>(nullptr, dbPath, service.name());
    }
    std::unique_ptr<FileShareController> startOn(int port) const
    {
        FileShareDb db(dbPath);
        const bool ok = db.open() && db.saveDefault("port"_s, QString::number(port));
        return ok ? start() : nullptr;
    }
    /// With a service that agrees to everything.
    std::unique_ptr<FileShareController> startWithService()
    {
        service.reply(kSync, {});
        return service.start() ? startOn(freePort()) : nullptr;
    }
    QStringList column(const char *sql) const
    {
        return RawDatabase(dbPath).column(QLatin1String(sql));
    }
};

QString create(FileShareController *controller, const QString &password = QString(),
               int durationMin = 0)
{
    return controller->createShare({"/data/文件.txt"_s, "/"_s}, password, durationMin, 4,
                                   QString());
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
    controller->onAccessLoggedFromWorker(id, "10.0.0.1"_s, QString::fromLatin1(action), "/x"_s);
}

} // namespace

class TestFileShareController : public QObject
{
    Q_OBJECT

private slots:
    void runsAShareThroughItsLife();
    void refusesWhatCannotBe();
    void keepsToOnePort();
    void takesUpEarlierShares_data();
    void takesUpEarlierShares();
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

    const QString id = create(controller.get(), "abc"_s, 5);
    QCOMPARE(id.size(), 12);
    QVERIFY(answers(port));
    const ShareSession session = controller->sessionInfo(id);
    QVERIFY(session.hasPassword);
    QCOMPARE(session.status, "active"_s);
    QCOMPARE(session.accessMode, "download"_s);
    QCOMPARE(session.port, port);
    QCOMPARE(session.expiresAt, session.createdAt + 300000);
    const QList<ShareRoot> roots = controller->sessionRoots(id);
    QCOMPARE(session.rootNames, QStringList({"文件.txt"_s, "/"_s}));
    QCOMPARE(roots.first().id.size(), 8);
    QCOMPARE(controller->lastUsedDefaults().value("max_clients"_s).toInt(), 4);
    QVERIFY(expiryTimer(controller.get())->isActive());
    const QStringList addresses = FileShareController::localIpAddresses();
    QCOMPARE(controller->shareUrls(id).size(), addresses.size());
    if (!addresses.isEmpty())
        QCOMPARE(controller->shareUrls(id).first(),
                 "http://%1:%2/s/%3/"_s.arg(addresses.first()).arg(port).arg(id));
    QVERIFY(controller->shareUrls("none"_s).isEmpty());
    QVERIFY(!controller->restartShare(id));

    controller->stopShare(id);
    QVERIFY(!answers(port));
    QCOMPARE(controller->sessionInfo(id).status, "stopped"_s);
    QVERIFY(!expiryTimer(controller.get())->isActive());
    QVERIFY(controller->restartShare(id)); // at once, while the old server may still be there
    QVERIFY(answers(port));
    QVERIFY(controller->sessionInfo(id).hasPassword);
    QCOMPARE(controller->sessionRoots(id).first().id, roots.first().id);

    // An edit keeps the link and the counts, and nothing else.
    logLine(controller.get(), id, "download");
    QVERIFY(controller->updateAndRestartShare(id, {"/new"_s}, QString(), 0, 9, "upload"_s));
    const ShareSession edited = controller->sessionInfo(id);
    QCOMPARE(edited.status + edited.accessMode, "activeupload"_s);
    QCOMPARE(edited.totalDownloads, 1);
    QVERIFY(!edited.hasPassword && edited.expiresAt == 0);
    QCOMPARE(controller->accessLogCount(id, QString()), 0);
    QVERIFY(controller->sessionRoots(id).first().id != roots.first().id);
    QVERIFY(answers(port));

    controller->removeSession(id);
    QVERIFY(!answers(port));
    QVERIFY(controller->allSessions().isEmpty());
    QVERIFY(fixture.column("SELECT root_id FROM share_roots").isEmpty());
    QCOMPARE(created.count(), 3);
    QCOMPARE(stopped.count(), 3);
    QCOMPARE(changed.count(), 7); // an active share is stopped before it is edited or removed
}

void TestFileShareController::refusesWhatCannotBe()
{
    Fixture fixture;
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any));
    auto controller = fixture.startOn(other.serverPort());
    QVERIFY(controller->createShare({}, QString(), 0, 1, QString()).isEmpty());
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression("ensureServerRunning failed: 端口 %1 "
                                            "监听失败: .+"_s.arg(other.serverPort())));
    QVERIFY(create(controller.get()).isEmpty());
    QVERIFY(controller->allSessions().isEmpty());
    other.close();

    const QString id = create(controller.get());
    QVERIFY(!id.isEmpty());
    QVERIFY(!controller->updateAndRestartShare(id, {}, QString(), 0, 1, QString()));
    QVERIFY(!controller->updateAndRestartShare("none"_s, {"/a"_s}, QString(), 0, 1, QString()));
    QVERIFY(!controller->restartShare("none"_s));
    QVERIFY(controller->hasActiveShares());

    // A step that fails takes back the ones before it: the share keeps its roots.
    RawDatabase(fixture.dbPath)
        .rows("CREATE TRIGGER refuse BEFORE INSERT ON share_roots WHEN "
              "new.local_path='/bad' BEGIN SELECT RAISE(ABORT,'no'); END"_s);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("addRoot failed: .*no"_s));
    QVERIFY(!controller->updateAndRestartShare(id, {"/a"_s, "/bad"_s}, QString(), 0, 1, QString()));
    QCOMPARE(controller->sessionRoots(id).size(), 2);
    QCOMPARE(controller->sessionInfo(id).status, "stopped"_s);
    QVERIFY(!answers(other.serverPort()));
}

void TestFileShareController::keepsToOnePort()
{
    Fixture fixture;
    const int port = freePort();
    auto controller = fixture.startOn(port);
    const QString range = "端口范围必须在 1024 到 65535 之间"_s;
    const QString busy = "当前仍有共享正在运行，请先停止所有共享后再修改端口"_s;
    const auto errorOf = [&controller](int wanted) {
        QString error;
        return controller->setSharePort(wanted, &error) ? QString() : error;
    };
    for (int refused : {1023, 65536})
        QCOMPARE(errorOf(refused), range);
    for (int taken : {1024, 65535, port})
        QCOMPARE(errorOf(taken), QString());

    const QString first = create(controller.get());
    QCOMPARE(errorOf(1024), busy);
    QCOMPARE(errorOf(port), QString());
    FileShareDb db(fixture.dbPath);
    QVERIFY(db.open() && db.saveDefault("port"_s, "1025"_s));
    QCOMPARE(controller->sessionInfo(create(controller.get())).port, port);
    controller->stopShare(first);
    QVERIFY(answers(port));
    controller->stopAllShares();
    QVERIFY(!answers(port));
    QCOMPARE(controller->sharePort(), 1025);
    QVERIFY(controller->canChangeSharePort());
}

// Sessions as "id, index of the port, expiry", oldest first.
void TestFileShareController::takesUpEarlierShares_data()
{
    QTest::addColumn<QStringList>("earlier");
    QTest::addColumn<bool>("isPortTaken");
    QTest::addColumn<QString>("outcome");
    const struct
    {
        const char *earlier;
        bool isPortTaken;
        const char *outcome;
    } rows[] = {
        {"", false, ""},
        {"a 0 none,b 0 later", false, "a:active b:active"},
        {"a 1 none,b 0 none", false, "a:stopped b:active"},
        {"a 0 none,b 1 over", false, "a:active b:expired"},
        {"a 0 over,b 1 over", false, "a:expired b:expired"},
        {"a 1 none,b 0 later", true, "a:stopped b:stopped"},
    };
    for (const auto &row : rows) {
        QStringList sessions = QString::fromLatin1(row.earlier).split(QLatin1Char(','));
        sessions.removeAll(QString());
        QTest::newRow(row.earlier)
            << sessions << row.isPortTaken << QString::fromLatin1(row.outcome);
    }
}

void TestFileShareController::takesUpEarlierShares()
{
    QFETCH(QStringList, earlier);
    QFETCH(bool, isPortTaken);
    QFETCH(QString, outcome);
    Fixture fixture;
    QTcpServer other;
    QVERIFY(!isPortTaken || other.listen(QHostAddress::Any));
    const int ports[] = {isPortTaken ? other.serverPort() : freePort(), freePort()};
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
    const bool isActive = outcome.contains(QLatin1String("active"));
    QCOMPARE(fixture.column("SELECT session_id||':'||status FROM share_sessions ORDER BY 1")
                 .join(QLatin1Char(' ')),
             outcome);
    QCOMPARE(answers(ports[0]), isActive || isPortTaken);
    QVERIFY(!answers(ports[1]));
    QCOMPARE(expiryTimer(controller.get())->isActive(), isActive);
    QCOMPARE(controller->sharePort(), isActive || isPortTaken ? ports[0] : 9800);
    controller.reset();
    QVERIFY(fixture.column("SELECT 1 FROM share_sessions WHERE status='active'").isEmpty());
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
    const QStringList ids{create(controller.get(), QString(), 1),
                          create(controller.get(), QString(), 1)};
    QSignalSpy expired(controller.get(), &FileShareController::shareExpired);
    QSignalSpy changed(controller.get(), &FileShareController::sessionListChanged);
    QTimer *timer = expiryTimer(controller.get());
    for (int i = 0; i < 2; ++i) {
        RawDatabase(fixture.dbPath)
            .rows("UPDATE share_sessions SET expires_at=5 WHERE session_id=?"_s, {ids.at(i)});
        for (int time = 0; time < 2; ++time) { // the second comes to nothing
            if (byWorker)
                controller->onSessionExpiredFromWorker(ids.at(i));
            else
                timer->start(1);
            QTRY_COMPARE(expired.count(), i + 1);
        }
        QCOMPARE(expired.last().first().toString(), ids.at(i));
        QCOMPARE(changed.count(), i + 1);
        QCOMPARE(controller->sessionInfo(ids.at(i)).status, "expired"_s);
        QCOMPARE(answers(port), i == 0); // the other one is still shared
    }
    QTRY_VERIFY(!timer->isActive());
    QVERIFY(controller->restartShare(ids.first()));
    QVERIFY(answers(port));
}

void TestFileShareController::tellsTheFirewall()
{
    Fixture fixture;
    auto controller = fixture.startWithService();
    const int port = controller->sharePort();
    const QString id = create(controller.get());
    controller->stopShare(id);
    QString error;
    QVERIFY(controller->setSharePort(1024, &error) && controller->setSharePort(port, &error));
    QVERIFY(controller->restartShare(id));
    controller->stopAllShares();

    QStringList told;
    for (const auto &request : fixture.service.requests())
        told.append(QString::fromUtf8(QJsonDocument(request.params).toJson(QJsonDocument::Compact))
                        .replace(QString::number(port), "P"_s));
    const QString off = R"({"active":false,"port":P})"_s;
    const QString on = R"({"active":true,"port":P})"_s;
    QCOMPARE(told, QStringList({off, on, off, R"({"active":false,"port":1024})"_s, off, on, off}));
    QTRY_COMPARE(fixture.service.clientCount(), 0);
}

void TestFileShareController::livesWithoutTheFirewall_data()
{
    QTest::addColumn<QString>("message");
    const struct
    {
        const char *name;
        const char *message;
    } rows[] = {
        {"none", "未连接到文件保护服务，无法同步麒麟系统防火墙规则"},
        {"silent", "同步麒麟系统防火墙规则超时"},
        {"refuses", "不支持"},
        {"refuses mutely", "同步麒麟系统防火墙规则失败"},
        {"fails", "坏了"},
        {"goes", ""},
    };
    for (const auto &row : rows)
        QTest::newRow(row.name) << QString::fromUtf8(row.message);
}

void TestFileShareController::livesWithoutTheFirewall()
{
    QFETCH(QString, message);
    const QByteArray what = QTest::currentDataTag();
    Fixture fixture;
    auto &service = fixture.service;
    auto controller = fixture.startWithService();
    if (what == "none")
        service.stop();
    else if (what == "silent" || what == "goes")
        service.hold(kSync);
    else if (what == "fails")
        service.fail(kSync, 500, message);
    else
        service.reply(
            kSync, {{"success"_s, false}, {"message"_s, what == "refuses" ? message : QString()}});
    if (what == "goes")
        connect(&service, &services::ServiceHost::requestReceived, &service,
                &services::ServiceHost::dropClients, Qt::QueuedConnection);

    const QString line = "^\\[FileShareController\\] syncShareFirewallState failed "
                         "after createShare: %1"_s;
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(line.arg(message)));
    const QString id = create(controller.get());
    QCOMPARE(controller->sessionInfo(id).status, "active"_s);
    QVERIFY(answers(controller->sharePort()));
    service.reply(kSync, {});
}

void TestFileShareController::changesDuringTheWaitCount()
{
    Fixture fixture;
    auto controller = fixture.startWithService();
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
    QCOMPARE(fixture.service.lastParams(kSync).value("active"_s).toBool(true), false);
    QVERIFY(!answers(port));
    fixture.service.disconnect(&fixture.service);
    fixture.service.reply(kSync, {});
}

void TestFileShareController::endsDuringTheWait()
{
    Fixture fixture;
    QPointer<FileShareController> controller(fixture.startWithService().release());
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
    const QString id = create(controller);
    QVERIFY(hasEnded && controller.isNull());
    QCOMPARE(fixture.service.lastParams(kSync).value("active"_s).toBool(true), false);
    QCOMPARE(fixture.column("SELECT session_id||status FROM share_sessions"),
             QStringList(id + "stopped"_s));
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
    QCOMPARE(controller->accessLogCount(id, "download"_s), kThreads * 200);
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
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("addAccessLog failed: .*FOREIGN"_s));
        logLine(controller.get(), "gone"_s, "download");
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
             QStringList({"upload_ok"_s, "browse"_s}));
    QCOMPARE(fixture.column("SELECT total_uploads FROM share_sessions"), QStringList("1"_s));
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
        .rows("CREATE TRIGGER full BEFORE INSERT ON share_access_log WHEN "
              "new.action='bad' BEGIN SELECT RAISE(ROLLBACK,'full'); END"_s);
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression("addAccessLog failed: .*full.*\\(3 lines\\)$"_s));
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
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("DB open failed: .+"_s));
    auto controller = fixture.start();
    QVERIFY(controller->allSessions().isEmpty());
    QCOMPARE(controller->sharePort(), 9800);
    QString error;
    QVERIFY(!controller->setSharePort(freePort(), &error));
    QVERIFY(!error.isEmpty());
    logLine(controller.get(), "s"_s, "download");
    controller->stopShare("s"_s);
    controller->removeSession("s"_s);
    controller->stopAllShares();
}

QTEST_GUILESS_MAIN(TestFileShareController)
#include "tst_filesharecontroller.moc"
