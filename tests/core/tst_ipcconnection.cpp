#include "core/ipclink.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using core::ipc::IpcClient;
using ipclink::eventFrame;
using ipclink::kMethod;
using ipclink::Link;

using Act = std::function<void(Link *)>;
Q_DECLARE_METATYPE(Act)

/// How connections of the client come and go, and the client itself.
class TestIpcConnection : public QObject
{
    Q_OBJECT

private slots:
    void answersPendingRequestsOnceOnDisconnection_data();
    void answersPendingRequestsOnceOnDisconnection();
    void noticesADeadPeerWhenSending();
    void reconnectsWhileStillClosing();
    void survivesItsDeletion_data();
    void survivesItsDeletion();
    void dropsCallbacksWhenDeleted();
    void ensureConnectedTellsTheOutcome();
    void ensureConnectedGivesUpInTime();
    void keepsHalfAFrameForTheNextConnection();
    void trustsOnlyRootAndTheOwnUser_data();
    void trustsOnlyRootAndTheOwnUser();
    void sendsNothingToAServiceThatIsNotTrusted();
    void prefersTheSystemSocket_data();
    void prefersTheSystemSocket();
};

void TestIpcConnection::answersPendingRequestsOnceOnDisconnection_data()
{
    QTest::addColumn<Act>("cut");
    QTest::newRow("service drops") << Act([](Link *link) { link->service.dropClients(); });
    QTest::newRow("service ends") << Act([](Link *link) { link->service.stop(); });
    QTest::newRow("client leaves")
        << Act([](Link *link) { link->client->disconnectFromService(); });
}

void TestIpcConnection::answersPendingRequestsOnceOnDisconnection()
{
    QFETCH(Act, cut);

    Link link;
    QVERIFY(link.open());
    QVector<int> order;
    for (int i = 0; i < 8; ++i)
        link.client->sendRequest(
            kMethod, QJsonObject(),
            [&, i](bool success, const QJsonObject &data, const QJsonObject &error) {
                order.append(i);
                link.answers.append({success, data, error});
                link.send(); // Is answered at once.
            });
    QVERIFY(link.service.waitForRequest(kMethod, 8));
    int answeredBefore = -1;
    connect(link.client, &IpcClient::disconnected, link.client,
            [&] { answeredBefore = order.size(); });

    cut(&link);
    QTRY_COMPARE(link.disconnections, 1);
    QCOMPARE(answeredBefore, 8);
    QMap<QString, int> byId;
    for (int i = 0; i < 8; ++i)
        byId.insert(link.service.requests().at(i).requestId, i);
    QCOMPARE(order, byId.values().toVector());
    QCOMPARE(link.answers.size(), 16);
    for (int i = 0; i < 16; ++i) {
        QCOMPARE(link.answers.at(i).success, false);
        QCOMPARE(link.answers.at(i).code(), i % 2 == 0 ? -2 : -1);
    }
    QCOMPARE(link.answers.at(0).message(),
             QStringLiteral("与服务 (%1) 的连接已断开").arg(link.service.name()));

    // Another loss has nothing left to answer.
    QTRY_COMPARE(link.service.clientCount(), 0);
    QVERIFY(link.open());
    link.service.dropClients();
    QTRY_COMPARE(link.disconnections, 2);
    QCOMPARE(link.answers.size(), 16);
}

void TestIpcConnection::noticesADeadPeerWhenSending()
{
    Link link;
    QVERIFY(link.open());
    link.service.dropClients(); // The client has not heard of it when it writes.
    QVERIFY(link.client->isConnected());
    link.send();
    QTRY_COMPARE(link.disconnections, 1);
    QCOMPARE(link.answers.size(), 1);
    QCOMPARE(link.answers.at(0).code(), -2);
}

void TestIpcConnection::reconnectsWhileStillClosing()
{
    Link link;
    QVERIFY(link.open());
    link.service.goDeaf();
    // Unsent bytes keep the socket closing for as long as the service does not read.
    link.send(kMethod, {{QStringLiteral("t"), QString(4000000, QLatin1Char('x'))}});
    link.service.writeRaw(QByteArrayLiteral("garbage!"));
    QTRY_COMPARE(link.errors.size(), 1);
    QCOMPARE(link.socket()->state(), QLocalSocket::ClosingState);
    QVERIFY(!link.client->isConnected());

    // The old connection ends inside the call, and a slot there is faster with the new one.
    connect(link.client, &IpcClient::disconnected, link.client, &IpcClient::connectToService);
    link.client->connectToService();
    QVERIFY(link.client->isConnected());
    QCOMPARE(link.disconnections, 1);
    QCOMPARE(link.answers.size(), 1);
    QCOMPARE(link.answers.at(0).code(), -2);
    QTRY_COMPARE(link.service.clientCount(), 2); // The deaf one has not noticed.
    link.service.writeRaw(eventFrame(2));
    QTRY_COMPARE(link.events, QVector<int>{2});
    QCOMPARE(link.errors.size(), 1);
}

void TestIpcConnection::survivesItsDeletion_data()
{
    // Each arms one place to delete the client in, and makes it happen.
    const auto remove = [](Link *link) {
        return [link] {
            delete link->client.data();
        };
    };
    const auto removeInAnswer = [](Link *link) {
        return [link](bool, const QJsonObject &, const QJsonObject &) {
            QVERIFY(link->client); // Nobody is called after the deletion.
            delete link->client.data();
        };
    };
    QTest::addColumn<bool>("opened");
    QTest::addColumn<int>("disconnections");
    QTest::addColumn<Act>("act");
    QTest::newRow("in connected()") << false << 0 << Act([=](Link *link) {
        QVERIFY(link->service.start());
        connect(link->client, &IpcClient::connected, link->client, remove(link));
        QVERIFY(!link->client->ensureConnected(500));
    });
    QTest::newRow("in connectionError()") << false << 0 << Act([=](Link *link) {
        connect(link->client, &IpcClient::connectionError, link->client, remove(link));
        QVERIFY(!link->client->ensureConnected(500));
    });
    QTest::newRow("in an answer without connection") << false << 0 << Act([=](Link *link) {
        link->client->sendRequest(kMethod, QJsonObject(), removeInAnswer(link));
    });
    QTest::newRow("in an event") << true << 0 << Act([=](Link *link) {
        connect(link->client, &IpcClient::eventReceived, link->client, remove(link));
        link->service.writeRaw(eventFrame(1) + eventFrame(2));
    });
    QTest::newRow("in an answer") << true << 0 << Act([=](Link *link) {
        link->client->sendRequest(QStringLiteral("unknown"), QJsonObject(), removeInAnswer(link));
    });
    QTest::newRow("in the error of a lost stream") << true << 0 << Act([=](Link *link) {
        connect(link->client, &IpcClient::connectionError, link->client, remove(link));
        link->service.writeRaw(QByteArrayLiteral("garbage!"));
    });
    QTest::newRow("in disconnected()") << true << 1 << Act([=](Link *link) {
        connect(link->client, &IpcClient::disconnected, link->client, remove(link));
        link->service.dropClients();
    });
    QTest::newRow("in the answer to a lost request") << true << 0 << Act([=](Link *link) {
        for (int i = 0; i < 2; ++i)
            link->client->sendRequest(kMethod, QJsonObject(), removeInAnswer(link));
        link->client->disconnectFromService();
    });
    QTest::newRow("in the answer to a failed write") << true << 0 << Act([=](Link *link) {
        link->service.dropClients();
        link->client->sendRequest(kMethod, QJsonObject(), removeInAnswer(link));
    });
}

void TestIpcConnection::survivesItsDeletion()
{
    QFETCH(bool, opened);
    QFETCH(int, disconnections);
    QFETCH(Act, act);

    Link link;
    QVERIFY(!opened || link.open());
    act(&link);
    QTRY_VERIFY(link.client.isNull());
    QTRY_COMPARE(link.service.clientCount(), 0); // The service sees the end.
    QVERIFY(link.events.size() <= 1);
    QCOMPARE(link.disconnections, disconnections);
}

void TestIpcConnection::dropsCallbacksWhenDeleted()
{
    Link link;
    QVERIFY(link.open());
    const auto calls = std::make_shared<int>(0);
    link.client->sendRequest(kMethod, QJsonObject(),
                             [calls](bool, const QJsonObject &, const QJsonObject &) { ++*calls; });
    QVERIFY(link.service.waitForRequest(kMethod));
    QCOMPARE(calls.use_count(), 2L);
    delete link.client;
    QCOMPARE(calls.use_count(), 1L);
    QTRY_COMPARE(link.service.clientCount(), 0);
    QVERIFY(link.service.release(kMethod, services::Reply::ok())); // To nobody.
    QCOMPARE(*calls, 0);
}

void TestIpcConnection::ensureConnectedTellsTheOutcome()
{
    Link link;
    QVERIFY(!link.client->ensureConnected(1500));
    QCOMPARE(link.errors.size(), 1);
    QVERIFY(!link.errors.at(0).isEmpty());
    QVERIFY(link.service.start());
    QSignalSpy connected(link.client, &IpcClient::connected);
    QVERIFY(link.client->ensureConnected(1500));
    QVERIFY(link.client->ensureConnected(0));
    QCOMPARE(connected.size(), 1);
    QTRY_COMPARE(link.service.clientCount(), 1);
}

void TestIpcConnection::ensureConnectedGivesUpInTime()
{
    // A server that accepts nobody, with its queue filled.
    QTemporaryDir dir;
    const QByteArray path = QFile::encodeName(dir.filePath(QStringLiteral("busy")));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
    const auto *raw = reinterpret_cast<const sockaddr *>(&address);
    const int server = ::socket(AF_UNIX, SOCK_STREAM, 0);
    QCOMPARE(::bind(server, raw, sizeof address), 0);
    QCOMPARE(::listen(server, 0), 0);
    QVector<int> others;
    do {
        others.append(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
    } while (::connect(others.constLast(), raw, sizeof address) == 0);

    IpcClient client(QFile::decodeName(path));
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!client.ensureConnected(300));
    QVERIFY(timer.elapsed() >= 250);
    QVERIFY(timer.elapsed() < 3000);
    QSignalSpy states(client.findChild<QLocalSocket *>(), &QLocalSocket::stateChanged);
    client.connectToService();                         // Is connecting still.
    others.append(::accept(server, nullptr, nullptr)); // A place gets free.
    QVERIFY(client.ensureConnected(3000));
    QCOMPARE(states.size(), 1); // It has never started anew.
    for (const int descriptor : qAsConst(others))
        ::close(descriptor);
    ::close(server);
}

void TestIpcConnection::keepsHalfAFrameForTheNextConnection()
{
    Link link;
    QVERIFY(link.open());
    const QByteArray frame = eventFrame(5);
    QSignalSpy arrival(link.socket(), &QLocalSocket::readyRead);
    link.service.writeRaw(frame.left(11));
    QVERIFY(arrival.wait());
    link.service.dropClients();
    QTRY_COMPARE(link.disconnections, 1);
    QVERIFY(link.open());
    link.service.writeRaw(frame.mid(11) + eventFrame(6));
    QTRY_COMPARE(link.events, (QVector<int>{5, 6}));
}

void TestIpcConnection::trustsOnlyRootAndTheOwnUser_data()
{
    QTest::addColumn<uint>("serviceUid");
    QTest::addColumn<uint>("ownUid");
    QTest::addColumn<bool>("isTrusted");
    QTest::newRow("root's service for a user") << 0u << 1000u << true;
    QTest::newRow("own service") << 1000u << 1000u << true;
    QTest::newRow("another user's service") << 1001u << 1000u << false;
    QTest::newRow("a user's service for root") << 1000u << 0u << false;
    QTest::newRow("unknown user") << uint(-1) << 1000u << false;
}

void TestIpcConnection::trustsOnlyRootAndTheOwnUser()
{
    QFETCH(uint, serviceUid);
    QFETCH(uint, ownUid);
    core::ipc::Peer service;
    service.uid = serviceUid;
    QTEST(core::ipc::isTrustedService(service, ownUid), "isTrusted");
}

void TestIpcConnection::sendsNothingToAServiceThatIsNotTrusted()
{
    testsupport::FakeService service;
    service.reply(QStringLiteral("vault.authenticate"), QJsonObject());
    QVERIFY(service.start());
    bool isTrusted = false;
    core::ipc::ServicePolicy policy;
    QVector<core::ipc::Peer> judged;
    policy.isTrusted = [&](const core::ipc::Peer &peer) {
        judged.append(peer);
        return isTrusted;
    };
    IpcClient client(service.name(), nullptr, policy);
    QSignalSpy connected(&client, &IpcClient::connected);
    QSignalSpy disconnected(&client, &IpcClient::disconnected);
    QSignalSpy errors(&client, &IpcClient::connectionError);
    QVector<bool> successes;
    QString message;
    const auto authenticate = [&] {
        client.sendRequest(QStringLiteral("vault.authenticate"),
                           {{QStringLiteral("password"), QStringLiteral("secret")}},
                           [&](bool success, const QJsonObject &, const QJsonObject &error) {
                               successes.append(success);
                               message = error.value(QLatin1String("message")).toString();
                           });
    };

    QVERIFY(!client.ensureConnected(1000));
    QCOMPARE(judged.size(), 1);
    QCOMPARE(judged.at(0).pid, ::getpid());
    QCOMPARE(errors.size(), 1);
    const QString reason = errors.at(0).at(0).toString();
    QVERIFY(reason.contains(QStringLiteral("UID %1").arg(::geteuid())));
    authenticate();
    QCOMPARE(successes, QVector<bool>{false});
    QVERIFY(message.contains(service.name()) && message.contains(reason));

    isTrusted = true;
    QVERIFY(client.ensureConnected(1000));
    authenticate();
    QTRY_COMPARE(successes, (QVector<bool>{false, true}));
    QCOMPARE(service.count(QStringLiteral("vault.authenticate")), 1);
    QTRY_COMPARE(service.clientCount(), 1);
    QCOMPARE(connected.size(), 1);
    QCOMPARE(disconnected.size(), 0);
    QCOMPARE(errors.size(), 1);
}

void TestIpcConnection::prefersTheSystemSocket_data()
{
    QTest::addColumn<bool>("hasSystem");
    QTest::addColumn<bool>("hasLeftover"); // a socket file there whose service has died
    QTest::addColumn<bool>("hasPlain");
    QTest::addColumn<QString>("used");
    const QString none;
    const QString system = QStringLiteral("system");
    const QString plain = QStringLiteral("plain");
    QTest::newRow("both") << true << false << true << system;
    QTest::newRow("system only") << true << false << false << system;
    QTest::newRow("plain only") << false << false << true << plain;
    QTest::newRow("plain beside a leftover") << false << true << true << plain;
    QTest::newRow("leftover only") << false << true << false << none;
    QTest::newRow("none") << false << false << false << none;
}

void TestIpcConnection::prefersTheSystemSocket()
{
    QFETCH(bool, hasSystem);
    QFETCH(bool, hasLeftover);
    QFETCH(bool, hasPlain);
    QFETCH(QString, used);

    QTemporaryDir dir;
    testsupport::FakeService plain;
    services::ServiceHost system;
    const QString path = dir.filePath(plain.name());
    if (hasSystem)
        QVERIFY(system.listen(path));
    if (hasLeftover) {
        // Renamed while its owner ends, the file stays behind.
        services::ServiceHost dead;
        QVERIFY(dead.listen(path));
        QVERIFY(QFile::rename(path, path + QStringLiteral(".kept")));
        dead.close();
        QVERIFY(QFile::rename(path + QStringLiteral(".kept"), path));
    }
    if (hasPlain)
        QVERIFY(plain.start());
    core::ipc::ServicePolicy policy;
    policy.systemDir = dir.path();
    IpcClient client(plain.name(), nullptr, policy);
    QSignalSpy errors(&client, &IpcClient::connectionError);
    QCOMPARE(client.ensureConnected(1000), !used.isEmpty());
    QCOMPARE(errors.size(), used.isEmpty() ? 1 : 0);
    QTRY_COMPARE(system.clientCount(), used == QLatin1String("system") ? 1 : 0);
    QTRY_COMPARE(plain.clientCount(), used == QLatin1String("plain") ? 1 : 0);
}

QTEST_GUILESS_MAIN(TestIpcConnection)
#include "tst_ipcconnection.moc"
