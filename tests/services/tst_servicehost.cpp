#include "common/mailbox.h"
#include "common/polkit.h"
#include "common/servicehost.h"
#include "core/ipc/ipcclient.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QLocalServer>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using core::ipc::IpcClient;
using services::Reply;
using services::Request;
using services::ServiceHost;
using services::SocketAccess;

Q_DECLARE_METATYPE(services::SocketAccess)

namespace {

const QString kName = QStringLiteral("host");

const QByteArray kRequest =
    core::ipc::encodeFrame(QByteArrayLiteral(R"({"type":"request","requestId":"r","method":"m"})"));

QString socketPath()
{
    return QDir::tempPath() + QLatin1Char('/') + kName;
}

/// A connection that nobody reads from, unlike a QLocalSocket, which reads on its own.
class SilentClient
{
public:
    SilentClient()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, QFile::encodeName(socketPath()).constData(),
                 sizeof address.sun_path);
        m_isConnected = ::connect(m_descriptor, reinterpret_cast<const sockaddr *>(&address),
                                  sizeof address) == 0;
    }
    ~SilentClient() { ::close(m_descriptor); }
    SilentClient(const SilentClient &) = delete;
    SilentClient &operator=(const SilentClient &) = delete;

    bool isConnected() const { return m_isConnected; }
    bool write(const QByteArray &bytes)
    {
        return ::write(m_descriptor, bytes.constData(), size_t(bytes.size())) == bytes.size();
    }

private:
    int m_descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool m_isConnected = false;
};

} // namespace

class TestServiceHost : public QObject
{
    Q_OBJECT

private slots:
    void answersRequests();
    void answersLaterAndOnce();
    void forgetsClientsThatHaveGone();
    void sendsEventsToEveryClient();
    void dropsGarbageAndIgnoresNonRequests();
    void closesInsideAHandler();
    void takesOverOnlyALeftoverSocket();
    void letsOnlyTheChosenUsersConnect_data();
    void letsOnlyTheChosenUsersConnect();
    void removesOnlyItsOwnSocketFile();
    void tellsHandlersWhoAsks();
    void answersAClientThatIsNotAdmittedWithTheReason();
    void letsRequestsWaitForTheAuthorization_data();
    void letsRequestsWaitForTheAuthorization();
    void asksTheAuthorizationManager_data();
    void asksTheAuthorizationManager();
    void dropsAClientThatDoesNotRead();
    void limitsOneClient();
    void mailboxForgetsWorkAtItsEnd();
};

void TestServiceHost::answersRequests()
{
    ServiceHost host;
    host.handle(QStringLiteral("echo"),
                [](const QJsonObject &params) { return Reply::ok(params); });
    host.handle(QStringLiteral("refuse"),
                [](const QJsonObject &) { return Reply::failure(1002, QStringLiteral("停止")); });
    QVERIFY(host.listen(kName));
    IpcClient client(kName);
    QVERIFY(client.ensureConnected(1000));

    QStringList answers;
    for (const char *method : {"echo", "refuse", "unknown"})
        client.sendRequest(
            QLatin1String(method), {{QStringLiteral("k"), 1}},
            [&](bool ok, const QJsonObject &data, const QJsonObject &error) {
                answers.append(QStringLiteral("%1 %2 %3")
                                   .arg(QString::number(ok), QString::number(data.size()),
                                        QString::fromUtf8(
                                            QJsonDocument(error).toJson(QJsonDocument::Compact))));
            });
    QTRY_COMPARE(answers.size(), 3);
    QCOMPARE(answers.at(0), QStringLiteral("1 1 {}"));
    QCOMPARE(answers.at(1), QStringLiteral("0 0 {\"code\":1002,\"message\":\"停止\"}"));
    QVERIFY(answers.at(2).startsWith(QLatin1String("0 0 {\"code\":404,")));
    QVERIFY(answers.at(2).contains(QLatin1String("unknown")));
}

void TestServiceHost::answersLaterAndOnce()
{
    ServiceHost host;
    ServiceHost::Respond held;
    host.handle(QStringLiteral("m"),
                [&](const QJsonObject &, const ServiceHost::Respond &respond) { held = respond; });
    QVERIFY(host.listen(kName));
    QLocalSocket socket;
    socket.connectToServer(kName);
    socket.write(kRequest);
    QTRY_VERIFY(held);
    held(Reply::failure(1, QStringLiteral("first")));
    held(Reply::failure(2, QStringLiteral("second")));
    host.broadcast(QStringLiteral("end"), QJsonObject());

    core::ipc::FrameDecoder decoder;
    QByteArray body;
    QStringList frames;
    QVERIFY(QTest::qWaitFor([&] {
        decoder.append(socket.readAll());
        while (decoder.next(&body) == core::ipc::FrameDecoder::Result::Frame)
            frames.append(QString::fromUtf8(body));
        return !frames.isEmpty() && frames.constLast().contains(QLatin1String("\"end\""));
    }));
    QCOMPARE(frames.size(), 2);
    QCOMPARE(frames.at(0), QStringLiteral(R"({"data":{},"error":{"code":1,"message":"first"},)"
                                          R"("requestId":"r","success":false,"type":"response"})"));
    QCOMPARE(frames.at(1), QStringLiteral(R"({"data":{},"event":"end","type":"event"})"));
}

void TestServiceHost::forgetsClientsThatHaveGone()
{
    QVector<ServiceHost::Respond> held;
    {
        ServiceHost host;
        host.handle(QStringLiteral("slow"),
                    [&](const QJsonObject &, const ServiceHost::Respond &r) { held.append(r); });
        QSignalSpy gone(&host, &ServiceHost::clientDisconnected);
        QVERIFY(host.listen(kName));
        IpcClient first(kName);
        IpcClient second(kName);
        for (IpcClient *client : {&first, &second}) {
            QVERIFY(client->ensureConnected(1000));
            client->sendRequest(QStringLiteral("slow"), QJsonObject());
        }
        QTRY_COMPARE(held.size(), 2);
        first.disconnectFromService();
        QTRY_COMPARE(gone.size(), 1);
        QCOMPARE(host.clientCount(), 1);
        held.at(0)(Reply::ok());
    }
    for (const ServiceHost::Respond &respond : qAsConst(held))
        respond(Reply::ok()); // Neither client nor host is there.
}

void TestServiceHost::sendsEventsToEveryClient()
{
    ServiceHost host;
    QVERIFY(host.listen(kName));
    IpcClient first(kName);
    IpcClient second(kName);
    QStringList heard;
    for (IpcClient *client : {&first, &second}) {
        QVERIFY(client->ensureConnected(1000));
        connect(client, &IpcClient::eventReceived, this,
                [&](const QString &name, const QJsonObject &data) {
                    heard.append(name + data.value(QLatin1String("id")).toString());
                });
    }
    QTRY_COMPARE(host.clientCount(), 2);
    host.broadcast(QStringLiteral("scan.progress"), {{QStringLiteral("id"), QStringLiteral("7")}});
    QTRY_COMPARE(heard.size(), 2);
    QCOMPARE(heard.at(0), QStringLiteral("scan.progress7"));
    QCOMPARE(heard.at(1), heard.at(0));
}

void TestServiceHost::dropsGarbageAndIgnoresNonRequests()
{
    ServiceHost host;
    QSignalSpy requests(&host, &ServiceHost::requestReceived);
    QVERIFY(host.listen(kName));
    QLocalSocket good;
    QLocalSocket bad;
    for (QLocalSocket *socket : {&good, &bad}) {
        socket->connectToServer(kName);
        QVERIFY(socket->waitForConnected(1000));
    }
    QTRY_COMPARE(host.clientCount(), 2);
    bad.write("GET / HTTP/1.1");
    QTRY_COMPARE(bad.state(), QLocalSocket::UnconnectedState);
    QCOMPARE(host.clientCount(), 1);

    for (const char *body : {"", "[]", R"({"type":"event"})", R"({"type":"request","method":"m"})"})
        good.write(core::ipc::encodeFrame(QByteArray(body)));
    good.write(kRequest.left(5));
    good.flush();
    good.write(kRequest.mid(5));
    QTRY_COMPARE(requests.size(), 1);
    QCOMPARE(requests.at(0).at(2).toString(), QStringLiteral("r"));
    QTRY_VERIFY(good.bytesAvailable() > 0);
    QCOMPARE(host.clientCount(), 1);
}

void TestServiceHost::closesInsideAHandler()
{
    ServiceHost host;
    int calls = 0;
    host.handle(QStringLiteral("quit"), [&](const QJsonObject &) {
        ++calls;
        host.close();
        return Reply::ok();
    });
    QVERIFY(host.listen(kName));
    IpcClient client(kName);
    QVERIFY(client.ensureConnected(1000));
    QVector<int> codes;
    for (int i = 0; i < 2; ++i)
        client.sendRequest(QStringLiteral("quit"), QJsonObject(),
                           [&](bool, const QJsonObject &, const QJsonObject &error) {
                               codes.append(error.value(QLatin1String("code")).toInt());
                           });
    QTRY_COMPARE(codes, (QVector<int>{-2, -2}));
    QCOMPARE(calls, 1); // The second request came with the first, and ended with its client.
    QVERIFY(!host.isListening());
    QVERIFY(host.listen(kName)); // And may start anew.
    QVERIFY(client.ensureConnected(1000));
}

void TestServiceHost::takesOverOnlyALeftoverSocket()
{
    QString path;
    {
        // A socket file whose owner has died: closing the descriptor leaves it behind.
        QLocalServer dead;
        QVERIFY(dead.listen(kName));
        path = dead.fullServerName();
        QVERIFY(QFile::rename(path, path + QStringLiteral(".kept")));
    }
    QVERIFY(QFile::rename(path + QStringLiteral(".kept"), path));

    ServiceHost host;
    QString error;
    QVERIFY2(host.listen(kName, &error), qPrintable(error));
    ServiceHost rival;
    QVERIFY(!rival.listen(kName, &error));
    QVERIFY(!error.isEmpty());
    QVERIFY(!host.listen(QStringLiteral("other"), &error));
    QVERIFY(error.contains(kName));
    IpcClient client(kName);
    QVERIFY(client.ensureConnected(1000));
    QTRY_COMPARE(host.clientCount(), 1);
}

void TestServiceHost::letsOnlyTheChosenUsersConnect_data()
{
    QTest::addColumn<SocketAccess>("access");
    QTest::addColumn<int>("mode");
    QTest::newRow("owner") << SocketAccess::Owner << 0600;
    QTest::newRow("group") << SocketAccess::Group << 0660;
    QTest::newRow("everyone") << SocketAccess::Everyone << 0666;
}

void TestServiceHost::letsOnlyTheChosenUsersConnect()
{
    QFETCH(SocketAccess, access);
    QFETCH(int, mode);

    const QVector<gid_t> groups = {::getegid()};
    for (const mode_t mask : {mode_t(0), mode_t(077)}) {
        const mode_t before = ::umask(mask);
        ServiceHost host;
        host.setAccess(access, groups.constFirst());
        const bool isListening = host.listen(kName);
        ::umask(before);
        QVERIFY(isListening);
        struct stat status
        {};
        QCOMPARE(::lstat(QFile::encodeName(socketPath()).constData(), &status), 0);
        QCOMPARE(int(status.st_mode & 07777), mode);
        QCOMPARE(status.st_gid, groups.constFirst());
    }
}

void TestServiceHost::removesOnlyItsOwnSocketFile()
{
    const QString moved = socketPath() + QStringLiteral(".moved");
    {
        ServiceHost host;
        QVERIFY(host.listen(kName));
        QVERIFY(QFile::rename(socketPath(), moved));
        QFile other(socketPath());
        QVERIFY(other.open(QIODevice::WriteOnly));
    }
    QVERIFY(QFile::exists(socketPath()));
    // A file that is no socket is in nobody's way but its owner's.
    ServiceHost host;
    QString error;
    QVERIFY(!host.listen(kName, &error));
    QVERIFY(error.contains(socketPath()));
    QVERIFY(QFile::remove(socketPath()) && QFile::remove(moved));
    QVERIFY2(host.listen(socketPath(), &error), qPrintable(error)); // A path does as well.
    host.close();
    QVERIFY(!QFile::exists(socketPath()));
}

void TestServiceHost::tellsHandlersWhoAsks()
{
    ServiceHost host;
    QVector<services::Peer> peers;
    host.handle(QStringLiteral("now"), [&](const Request &request) {
        peers.append(request.peer);
        return Reply::ok(request.params);
    });
    host.handle(QStringLiteral("later"),
                [&](const Request &request, const ServiceHost::Respond &respond) {
                    peers.append(request.peer);
                    respond(Reply::ok({{QStringLiteral("method"), request.method}}));
                });
    QVERIFY(host.listen(kName));
    IpcClient client(kName);
    QVERIFY(client.ensureConnected(1000));
    QVector<QJsonObject> answers;
    for (const char *method : {"now", "later"})
        client.sendRequest(
            QLatin1String(method), {{QStringLiteral("k"), 1}},
            [&](bool, const QJsonObject &data, const QJsonObject &) { answers.append(data); });
    QTRY_COMPARE(answers.size(), 2);
    QCOMPARE(answers.at(0), (QJsonObject{{QStringLiteral("k"), 1}}));
    QCOMPARE(answers.at(1), (QJsonObject{{QStringLiteral("method"), QStringLiteral("later")}}));
    for (const services::Peer &peer : qAsConst(peers)) {
        QCOMPARE(peer.uid, ::geteuid());
        QCOMPARE(peer.pid, ::getpid());
        QVERIFY(peer.isInGroup(::getegid()));
        QVERIFY(!peer.isInGroup(gid_t(-2)));
    }

    QSignalSpy events(&client, &IpcClient::eventReceived);
    host.broadcast(QStringLiteral("others"), QJsonObject(),
                   [](const services::Peer &peer) { return peer.uid != ::geteuid(); });
    host.broadcast(QStringLiteral("own"), QJsonObject(),
                   [](const services::Peer &peer) { return peer.uid == ::geteuid(); });
    QTRY_COMPARE(events.size(), 1);
    QCOMPARE(events.at(0).at(0).toString(), QStringLiteral("own"));
}

void TestServiceHost::answersAClientThatIsNotAdmittedWithTheReason()
{
    ServiceHost host;
    bool isAdmitted = false;
    host.setAdmission([&](const services::Peer &peer, QString *reason) {
        *reason = QStringLiteral("用户 %1 不能使用").arg(peer.uid);
        return isAdmitted;
    });
    int calls = 0;
    host.handle(QStringLiteral("m"), [&](const QJsonObject &) {
        ++calls;
        return Reply::ok();
    });
    QVERIFY(host.listen(kName));
    IpcClient refused(kName);
    QVERIFY(refused.ensureConnected(1000));
    QTRY_COMPARE(host.clientCount(), 1);
    isAdmitted = true;
    IpcClient admitted(kName);
    QVERIFY(admitted.ensureConnected(1000));
    QTRY_COMPARE(host.clientCount(), 2);

    QSignalSpy events(&refused, &IpcClient::eventReceived);
    QSignalSpy seen(&admitted, &IpcClient::eventReceived);
    host.broadcast(QStringLiteral("e"), QJsonObject());
    QTRY_COMPARE(seen.size(), 1);
    QJsonObject answer;
    refused.sendRequest(
        QStringLiteral("m"), QJsonObject(),
        [&](bool, const QJsonObject &, const QJsonObject &error) { answer = error; });
    QTRY_COMPARE(answer.value(QLatin1String("code")).toInt(), ServiceHost::kRefusedCode);
    QCOMPARE(answer.value(QLatin1String("message")).toString(),
             QStringLiteral("用户 %1 不能使用").arg(::geteuid()));
    QCOMPARE(calls, 0);
    QCOMPARE(events.size(), 0);
    // It may not make the service hold much, either.
    refused.sendRequest(QStringLiteral("m"), {{QStringLiteral("t"), QString(100000, QChar(0x61))}});
    QTRY_COMPARE(host.clientCount(), 1);
}

void TestServiceHost::letsRequestsWaitForTheAuthorization_data()
{
    QTest::addColumn<bool>("isAllowed");
    QTest::newRow("given") << true;
    QTest::newRow("refused") << false;
}

void TestServiceHost::letsRequestsWaitForTheAuthorization()
{
    QFETCH(bool, isAllowed);
    ServiceHost host;
    QVector<ServiceHost::Decide> asked;
    host.setAuthorizer(
        [&](const services::Peer &, const ServiceHost::Decide &decide) { asked.append(decide); });
    int calls = 0;
    host.handle(QStringLiteral("m"), [&](const QJsonObject &) {
        ++calls;
        return Reply::ok();
    });
    QVERIFY(host.listen(kName));
    IpcClient client(kName);
    QVERIFY(client.ensureConnected(1000));
    QSignalSpy events(&client, &IpcClient::eventReceived);
    QSignalSpy arrived(&host, &ServiceHost::requestReceived);
    QVector<int> codes;
    const auto ask = [&] {
        client.sendRequest(QStringLiteral("m"), QJsonObject(),
                           [&](bool, const QJsonObject &, const QJsonObject &error) {
                               codes.append(error.value(QLatin1String("code")).toInt());
                           });
    };
    ask();
    ask();
    QTRY_COMPARE(asked.size(), 1);
    host.broadcast(QStringLiteral("e"), QJsonObject());
    QCOMPARE(calls, 0);

    asked.first()(isAllowed, QStringLiteral("没有授权"));
    asked.first()(!isAllowed, QString()); // the first answer counts
    ask();
    const int code = isAllowed ? 0 : ServiceHost::kRefusedCode;
    QTRY_COMPARE(codes, (QVector<int>{code, code, code}));
    QCOMPARE(calls, isAllowed ? 3 : 0);
    QCOMPARE(arrived.size(), calls);
    QCOMPARE(asked.size(), 1);
    QCOMPARE(events.size(), 0);
    // An answer for a client that has gone reaches nobody.
    client.disconnectFromService();
    QTRY_COMPARE(host.clientCount(), 0);
    asked.first()(true, QString());
    QCOMPARE(calls, isAllowed ? 3 : 0);
}

void TestServiceHost::asksTheAuthorizationManager_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<bool>("isAllowed");
    // The checker gets action and subject; what it is given decides the first two rows.
    QTest::newRow("the process itself")
        << QByteArrayLiteral(R"([ "$2" = do.it ] && [ "$4" = "$SUBJECT" ])") << true;
    QTest::newRow("refused") << QByteArrayLiteral("exit 1") << false;
    QTest::newRow("dismissed") << QByteArrayLiteral("exit 3") << false;
    QTest::newRow("killed") << QByteArrayLiteral("kill -9 $$") << false;
    QTest::newRow("not there") << QByteArray() << false;
}

void TestServiceHost::asksTheAuthorizationManager()
{
    QFETCH(QByteArray, script);
    QFETCH(bool, isAllowed);
    const QString checker = QDir::tempPath() + QStringLiteral("/checker");
    QFile::remove(checker);
    if (!script.isEmpty()) {
        QFile file(checker);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\n" + script + '\n');
        file.close();
        QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    }
    services::Peer peer;
    peer.uid = 1234; // root is not asked about
    peer.pid = ::getpid();
    const QString subject = services::polkitSubject(peer);
    QVERIFY(subject.startsWith(QStringLiteral("%1,").arg(::getpid())));
    qputenv("SUBJECT", subject.toUtf8());

    services::Polkit polkit(checker);
    QVector<bool> answers;
    QString reason;
    polkit.check(QStringLiteral("do.it"), peer, [&](bool isGiven, const QString &why) {
        answers.append(isGiven);
        reason = why;
    });
    QTRY_COMPARE(answers, QVector<bool>{isAllowed});
    QCOMPARE(reason.isEmpty(), isAllowed);
    peer.pid = 0; // has ended
    polkit.check(QStringLiteral("do.it"), peer,
                 [&](bool isGiven, const QString &) { answers.append(isGiven); });
    QCOMPARE(answers, (QVector<bool>{isAllowed, false}));
}

void TestServiceHost::dropsAClientThatDoesNotRead()
{
    ServiceHost host;
    const QJsonObject large{{QStringLiteral("t"), QString(70 * 1024 * 1024, QChar(0x61))}};
    int answered = 0;
    host.handle(QStringLiteral("m"), [&](const QJsonObject &) {
        ++answered;
        return Reply::ok(large);
    });
    QVERIFY(host.listen(kName));
    SilentClient silent;
    QVERIFY(silent.isConnected());
    IpcClient reader(kName);
    QVERIFY(reader.ensureConnected(1000));
    QTRY_COMPARE(host.clientCount(), 2);

    // One answer may exceed the limit, and what follows it is not held against its reader.
    QVERIFY(silent.write(kRequest));
    QTRY_COMPARE(answered, 1);
    QSignalSpy events(&reader, &IpcClient::eventReceived);
    host.broadcast(QStringLiteral("e"), QJsonObject());
    QTRY_COMPARE(events.size(), 1);
    QCOMPARE(host.clientCount(), 2);

    const QJsonObject megabyte{{QStringLiteral("t"), QString(1024 * 1024, QChar(0x61))}};
    const int limit =
        2 * 70 + 2 + int(ServiceHost::kMaxUnsentBytes / (1024 * 1024)); // in megabytes
    int sent = 0;
    while (host.clientCount() == 2 && sent < limit) {
        host.broadcast(QStringLiteral("e"), megabyte);
        ++sent;
        QTRY_COMPARE(events.size(), 1 + sent);
    }
    QCOMPARE(host.clientCount(), 1);
    QVERIFY(reader.isConnected());
}

void TestServiceHost::limitsOneClient()
{
    ServiceHost host;
    QVector<ServiceHost::Respond> held;
    host.handle(QStringLiteral("m"), [&](const QJsonObject &, const ServiceHost::Respond &respond) {
        held.append(respond);
    });
    QVERIFY(host.listen(kName));
    IpcClient client(kName);
    QVERIFY(client.ensureConnected(1000));
    QVector<int> codes;
    const auto send = [&] {
        client.sendRequest(QStringLiteral("m"), QJsonObject(),
                           [&](bool, const QJsonObject &, const QJsonObject &error) {
                               codes.append(error.value(QLatin1String("code")).toInt());
                           });
    };
    for (int i = 0; i <= ServiceHost::kMaxPendingRequests; ++i)
        send();
    QTRY_COMPARE(codes, QVector<int>{ServiceHost::kTooManyRequestsCode});
    QCOMPARE(held.size(), ServiceHost::kMaxPendingRequests);
    held.constFirst()(Reply::ok());
    QTRY_COMPARE(codes.size(), 2);
    send(); // There is room for one again.
    QTRY_COMPARE(held.size(), ServiceHost::kMaxPendingRequests + 1);

    std::vector<std::unique_ptr<SilentClient>> others;
    for (int i = 0; i < ServiceHost::kMaxClientsPerUser + 5; ++i)
        others.push_back(std::make_unique<SilentClient>());
    QTRY_COMPARE(host.clientCount(), ServiceHost::kMaxClientsPerUser);
    others.clear();
    QTRY_COMPARE(host.clientCount(), 1);
    QVERIFY(client.isConnected());
}

void TestServiceHost::mailboxForgetsWorkAtItsEnd()
{
    std::unique_ptr<services::Mailbox> mailbox(new services::Mailbox);
    QStringList done;
    mailbox->post([&] { done.append(QStringLiteral("first")); });
    mailbox->post([&] {
        done.append(QStringLiteral("last"));
        mailbox.reset();
    });
    mailbox->post([&] { done.append(QStringLiteral("too late")); });
    QTRY_VERIFY(!mailbox);
    QCOMPARE(done, QStringList({QStringLiteral("first"), QStringLiteral("last")}));
}

QTEST_GUILESS_MAIN(TestServiceHost)
#include "tst_servicehost.moc"
