#include "core/ipc/ipcclient.h"
#include "support/fakeservice.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <numeric>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using core::ipc::encodeFrame;
using core::ipc::encodeJsonFrame;
using core::ipc::IpcClient;
using core::ipc::ResponseCallback;
using services::Reply;
using testsupport::FakeService;

namespace {

const QString kMethod = QStringLiteral("test.method");
const QString kEvent = QStringLiteral("test.event");

QByteArray eventFrame(int number)
{
    return encodeJsonFrame({{QStringLiteral("type"), QStringLiteral("event")},
                            {QStringLiteral("event"), kEvent},
                            {QStringLiteral("data"), QJsonObject{{QStringLiteral("n"), number}}}});
}

/// One answer as a callback got it.
struct Answer
{
    bool success = false;
    QJsonObject data;
    QJsonObject error;

    int code() const { return error.value(QLatin1String("code")).toInt(); }
    QString message() const { return error.value(QLatin1String("message")).toString(); }
};

/// A callback that notes its answers in `answers`, which must outlive it.
ResponseCallback noteIn(QVector<Answer> *answers)
{
    return [answers](bool success, const QJsonObject &data, const QJsonObject &error) {
        answers->append({success, data, error});
    };
}

/// A service and a client of it, with everything that the client tells.
struct Link
{
    FakeService service;
    QPointer<IpcClient> client = new IpcClient(service.name());
    QVector<int> events;
    QStringList errors;
    int disconnections = 0;

    Link()
    {
        QObject::connect(client, &IpcClient::eventReceived, client,
                         [this](const QString &, const QJsonObject &data) {
                             events.append(data.value(QLatin1String("n")).toInt());
                         });
        QObject::connect(client, &IpcClient::connectionError, client,
                         [this](const QString &reason) { errors.append(reason); });
        QObject::connect(client, &IpcClient::disconnected, client, [this] { ++disconnections; });
    }
    ~Link() { delete client; }

    /// The service listens and has accepted the client.
    bool open()
    {
        return (service.isListening() || service.start()) && client->ensureConnected(2000) &&
               QTest::qWaitFor([this] { return service.clientCount() == 1; });
    }
    QLocalSocket *socket() const { return client->findChild<QLocalSocket *>(); }
};

QVector<int> upTo(int count)
{
    QVector<int> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

} // namespace

Q_DECLARE_METATYPE(std::function<void(Link *)>)

class TestIpcClient : public QObject
{
    Q_OBJECT

private slots:
    void sendsRequestsAsFrames();
    void readsResponses_data();
    void readsResponses();
    void dropsMalformedFramesWithoutAWord_data();
    void dropsMalformedFramesWithoutAWord();
    void readsFramesCutAtEveryByte();
    void readsAFlood();
    void carriesLargeFrames();
    void givesUpALostStream_data();
    void givesUpALostStream();
    void reconnectsWhileStillClosing();
    void answersAtOnceWithoutConnection();
    void answersPendingRequestsOnceOnDisconnection_data();
    void answersPendingRequestsOnceOnDisconnection();
    void noticesADeadPeerWhenSending();
    void letsCallbacksSendAndDisconnect();
    void fetchesWhatCameWhileACallbackWaited();
    void survivesItsDeletion_data();
    void survivesItsDeletion();
    void dropsCallbacksWhenDeleted();
    void ensureConnectedTellsTheOutcome();
    void ensureConnectedGivesUpInTime();
    void keepsHalfAFrameForTheNextConnection();
};

void TestIpcClient::sendsRequestsAsFrames()
{
    QLocalServer server;
    QVERIFY(server.listen(QStringLiteral("raw")));
    IpcClient client(QStringLiteral("raw"));
    QTest::ignoreMessage(QtInfoMsg, "[IPC] connecting to service: \"raw\"");
    QTest::ignoreMessage(QtInfoMsg, "[IPC] connected");
    client.connectToService();
    QVERIFY(server.waitForNewConnection(2000));
    QLocalSocket *peer = server.nextPendingConnection();
    QTRY_VERIFY(client.isConnected());
    client.connectToService(); // Does nothing now.

    const QJsonObject params{{QStringLiteral("路径"), QStringLiteral("/a b")}};
    client.sendRequest(kMethod, params, [](bool, const QJsonObject &, const QJsonObject &) {});
    client.sendRequest(kMethod, QJsonObject());
    QSet<QString> ids;
    core::ipc::FrameDecoder decoder;
    QByteArray body;
    for (int i = 0; i < 2; ++i) {
        QVERIFY(QTest::qWaitFor([&] {
            decoder.append(peer->readAll());
            return decoder.next(&body) == core::ipc::FrameDecoder::Result::Frame;
        }));
        const QJsonObject request = QJsonDocument::fromJson(body).object();
        QCOMPARE(body, QJsonDocument(request).toJson(QJsonDocument::Compact));
        QCOMPARE(request.keys().join(QLatin1Char(' ')),
                 QStringLiteral("method params requestId type"));
        QCOMPARE(request.value(QLatin1String("type")).toString(), QStringLiteral("request"));
        QCOMPARE(request.value(QLatin1String("method")).toString(), kMethod);
        QCOMPARE(request.value(QLatin1String("params")),
                 QJsonValue(i == 0 ? params : QJsonObject()));
        const QString id = request.value(QLatin1String("requestId")).toString();
        QCOMPARE(id.size(), 36);
        QVERIFY(!QUuid::fromString(id).isNull());
        ids.insert(id);
    }
    QCOMPARE(ids.size(), 2);
    QCOMPARE(server.hasPendingConnections(), false);

    QTest::ignoreMessage(QtWarningMsg, "[IPC] disconnected");
    client.disconnectFromService();
    QVERIFY(!client.isConnected());
}

void TestIpcClient::readsResponses_data()
{
    QTest::addColumn<QString>("rest"); // Of the response, after type and requestId.
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("data");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    QTest::newRow("success") << R"("success":true,"data":{"k":[1]})" << true << R"({"k":[1]})" << 0
                             << QString();
    QTest::newRow("no data") << R"("success":true)" << true << "{}" << 0 << QString();
    QTest::newRow("data of a wrong type")
        << R"("success":true,"data":[1])" << true << "{}" << 0 << QString();
    QTest::newRow("failure") << R"("success":false,"error":{"code":1002,"message":"停止"})" << false
                             << "{}" << 1002 << "停止";
    QTest::newRow("failure with data") << R"("success":false,"data":{"k":1},"error":{"code":7})"
                                       << false << R"({"k":1})" << 7 << QString();
    QTest::newRow("no success") << R"("data":{"k":1})" << false << R"({"k":1})" << 0 << QString();
    QTest::newRow("success as text") << R"("success":"true")" << false << "{}" << 0 << QString();
}

void TestIpcClient::readsResponses()
{
    QFETCH(QString, rest);
    QFETCH(bool, success);
    QFETCH(QString, data);
    QFETCH(int, code);
    QFETCH(QString, message);

    Link link;
    QVERIFY(link.open());
    link.service.hold(kMethod);
    QVector<Answer> answers;
    link.client->sendRequest(kMethod, QJsonObject(), noteIn(&answers));
    QVERIFY(link.service.waitForRequest(kMethod));
    const QString id = link.service.requests().constFirst().requestId;
    if (!success)
        QTest::ignoreMessage(
            QtWarningMsg,
            qUtf8Printable(QStringLiteral("[IPC] request failed: \"%1\" \"%2\"").arg(id, message)));

    // The second answer to the same request finds nothing.
    const QByteArray frame = encodeFrame(
        QStringLiteral(R"({"type":"response","requestId":"%1",%2})").arg(id, rest).toUtf8());
    link.service.writeRaw(frame + frame + eventFrame(1));
    QTRY_COMPARE(link.events, QVector<int>{1});
    QCOMPARE(answers.size(), 1);
    QCOMPARE(answers.at(0).success, success);
    QCOMPARE(answers.at(0).data, QJsonDocument::fromJson(data.toUtf8()).object());
    QCOMPARE(answers.at(0).code(), code);
    QCOMPARE(answers.at(0).message(), message);
}

void TestIpcClient::dropsMalformedFramesWithoutAWord_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("not JSON") << QByteArrayLiteral("{\"type\":");
    QTest::newRow("not UTF-8") << QByteArray("\xff\xfe\0", 3);
    QTest::newRow("an array") << QByteArrayLiteral("[1]");
    QTest::newRow("no type") << QByteArrayLiteral("{\"event\":\"test.event\"}");
    QTest::newRow("a request") << QByteArrayLiteral("{\"type\":\"request\"}");
    QTest::newRow("response without id") << QByteArrayLiteral("{\"type\":\"response\"}");
    QTest::newRow("response to nothing")
        << QByteArrayLiteral("{\"type\":\"response\",\"requestId\":\"x\",\"success\":true}");
}

void TestIpcClient::dropsMalformedFramesWithoutAWord()
{
    QFETCH(QByteArray, body);

    Link link;
    QVERIFY(link.open());
    link.service.hold(kMethod);
    QVector<Answer> answers;
    link.client->sendRequest(kMethod, QJsonObject(), noteIn(&answers));
    link.service.writeRaw(eventFrame(1) + encodeFrame(body) + eventFrame(2));
    QTRY_COMPARE(link.events, (QVector<int>{1, 2}));
    QVERIFY(answers.isEmpty());
    QVERIFY(link.errors.isEmpty());
    QVERIFY(link.client->isConnected());
}

void TestIpcClient::readsFramesCutAtEveryByte()
{
    Link link;
    QVERIFY(link.open());
    const QByteArray stream = eventFrame(0) + eventFrame(1) + encodeFrame(QByteArray());
    for (int cut = 1; cut < stream.size(); ++cut) {
        link.events.clear();
        QSignalSpy arrival(link.socket(), &QLocalSocket::readyRead);
        link.service.writeRaw(stream.left(cut));
        QVERIFY(arrival.wait());
        link.service.writeRaw(stream.mid(cut));
        QVERIFY(arrival.wait());
        QTRY_COMPARE(link.events, upTo(2));
    }
    QVERIFY(link.errors.isEmpty());
}

void TestIpcClient::readsAFlood()
{
    constexpr int kCount = 20000;
    Link link;
    QVERIFY(link.open());
    link.service.reply(kMethod, QJsonObject());
    QVector<Answer> answers;
    QByteArray flood;
    for (int i = 0; i < kCount; ++i)
        flood += eventFrame(i);
    link.client->sendRequest(kMethod, QJsonObject(), noteIn(&answers));
    link.service.writeRaw(flood);
    QTRY_COMPARE_WITH_TIMEOUT(link.events.size(), kCount, 30000);
    QCOMPARE(link.events, upTo(kCount));
    QTRY_COMPARE(answers.size(), 1);
}

void TestIpcClient::carriesLargeFrames()
{
    Link link;
    QVERIFY(link.open());
    const QJsonObject large{{QStringLiteral("text"), QString(20000000, QLatin1Char('x'))}};
    link.service.reply(kMethod, large);
    QVector<Answer> answers;
    link.client->sendRequest(kMethod, large, noteIn(&answers));
    QTRY_COMPARE_WITH_TIMEOUT(answers.size(), 1, 60000);
    QVERIFY(answers.at(0).data == large);
    QVERIFY(link.service.lastParams(kMethod) == large);
}

void TestIpcClient::givesUpALostStream_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QVector<int>>("events");
    QTest::addColumn<QString>("reason");

    const QString magic = QStringLiteral("IPC 帧魔数不匹配");
    const QByteArray garbage("GET / HTTP/1.1\r\n");
    QTest::newRow("garbage at once") << garbage + eventFrame(1) << QVector<int>() << magic;
    QTest::newRow("garbage after good frames")
        << eventFrame(0) + eventFrame(1) + garbage << QVector<int>{0, 1} << magic;
    QTest::newRow("one byte too many between frames")
        << eventFrame(0) + '\n' + eventFrame(1) << QVector<int>{0} << magic;
    QTest::newRow("a frame that cannot be held")
        << eventFrame(0) + QByteArrayLiteral("KVSF\xff\xff\xff\xff") << QVector<int>{0}
        << QStringLiteral("IPC 帧过大，无法接收");
}

void TestIpcClient::givesUpALostStream()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QVector<int>, events);
    QFETCH(QString, reason);

    Link link;
    QVERIFY(link.open());
    QVector<Answer> answers;
    link.service.hold(kMethod);
    link.client->sendRequest(kMethod, QJsonObject(), noteIn(&answers));
    QVERIFY(link.service.waitForRequest(kMethod));
    link.service.writeRaw(bytes);
    QTRY_COMPARE(link.disconnections, 1);
    QCOMPARE(link.errors, QStringList{reason});
    QCOMPARE(link.events, events);
    QCOMPARE(answers.size(), 1);
    QCOMPARE(answers.at(0).code(), -2);

    // Nothing of the lost stream is left for the next connection.
    QTRY_COMPARE(link.service.clientCount(), 0);
    QVERIFY(link.open());
    link.service.writeRaw(eventFrame(7));
    QTRY_COMPARE(link.events.value(events.size()), 7);
}

void TestIpcClient::reconnectsWhileStillClosing()
{
    Link link;
    QVERIFY(link.open());
    link.service.goDeaf();
    // Unsent bytes keep the socket closing for as long as the service does not read.
    QVector<Answer> answers;
    link.client->sendRequest(kMethod, {{QStringLiteral("t"), QString(4000000, QLatin1Char('x'))}},
                             noteIn(&answers));
    link.service.writeRaw(QByteArrayLiteral("garbage!"));
    QTRY_COMPARE(link.errors.size(), 1);
    QCOMPARE(link.socket()->state(), QLocalSocket::ClosingState);
    QVERIFY(!link.client->isConnected());

    // The old connection ends inside the call, and a slot there is faster with the new one.
    connect(link.client, &IpcClient::disconnected, link.client, &IpcClient::connectToService);
    link.client->connectToService();
    QVERIFY(link.client->isConnected());
    QCOMPARE(link.disconnections, 1);
    QCOMPARE(answers.size(), 1);
    QCOMPARE(answers.at(0).code(), -2);
    QTRY_COMPARE(link.service.clientCount(), 2); // The deaf one has not noticed.
    link.service.writeRaw(eventFrame(2));
    QTRY_COMPARE(link.events, QVector<int>{2});
    QCOMPARE(link.errors.size(), 1);
}

void TestIpcClient::answersAtOnceWithoutConnection()
{
    Link link;
    QVector<Answer> answers;
    link.client->sendRequest(kMethod, QJsonObject(), noteIn(&answers));
    QCOMPARE(answers.size(), 1);
    QCOMPARE(answers.at(0).success, false);
    QCOMPARE(answers.at(0).code(), -1);
    QCOMPARE(answers.at(0).message(), QStringLiteral("未连接到服务 (%1)").arg(link.service.name()));

    // Without a callback nothing happens, and nothing is kept for later.
    link.client->sendRequest(kMethod, QJsonObject());
    QVERIFY(link.open());
    link.client->sendRequest(QStringLiteral("second"), QJsonObject());
    QVERIFY(link.service.waitForRequest(QStringLiteral("second")));
    QCOMPARE(link.service.methods(), QStringList{QStringLiteral("second")});
    QCOMPARE(answers.size(), 1);
}

void TestIpcClient::answersPendingRequestsOnceOnDisconnection_data()
{
    using Cut = std::function<void(Link *)>;
    QTest::addColumn<Cut>("cut");
    QTest::newRow("service drops") << Cut([](Link *link) { link->service.dropClients(); });
    QTest::newRow("service ends") << Cut([](Link *link) { link->service.stop(); });
    QTest::newRow("client leaves")
        << Cut([](Link *link) { link->client->disconnectFromService(); });
}

void TestIpcClient::answersPendingRequestsOnceOnDisconnection()
{
    QFETCH(std::function<void(Link *)>, cut);

    Link link;
    QVERIFY(link.open());
    link.service.hold(kMethod);
    QMap<int, Answer> answers; // By number of the request.
    QVector<int> order;
    QVector<Answer> nested;
    for (int i = 0; i < 8; ++i)
        link.client->sendRequest(
            kMethod, QJsonObject(),
            [&, i](bool success, const QJsonObject &data, const QJsonObject &error) {
                order.append(i);
                answers.insert(i, {success, data, error});
                QCOMPARE(link.disconnections, 0);
                link.client->sendRequest(kMethod, QJsonObject(), noteIn(&nested));
            });
    QVERIFY(link.service.waitForRequest(kMethod, 8));
    int answeredBefore = -1;
    connect(link.client, &IpcClient::disconnected, link.client,
            [&] { answeredBefore = order.size(); });

    cut(&link);
    QTRY_COMPARE(link.disconnections, 1);
    QCOMPARE(answeredBefore, 8);
    QCOMPARE(order.size(), 8);
    QCOMPARE(answers.size(), 8);
    QMap<QString, int> byId;
    for (int i = 0; i < 8; ++i)
        byId.insert(link.service.requests().at(i).requestId, i);
    QCOMPARE(order, byId.values().toVector());
    for (const Answer &answer : qAsConst(answers)) {
        QCOMPARE(answer.success, false);
        QCOMPARE(answer.code(), -2);
        QCOMPARE(answer.message(),
                 QStringLiteral("与服务 (%1) 的连接已断开").arg(link.service.name()));
    }
    QCOMPARE(nested.size(), 8);
    for (const Answer &answer : qAsConst(nested))
        QCOMPARE(answer.code(), -1);
    QVERIFY(!link.client->isConnected());
}

void TestIpcClient::noticesADeadPeerWhenSending()
{
    Link link;
    QVERIFY(link.open());
    link.service.dropClients(); // The client has not heard of it when it writes.
    QVERIFY(link.client->isConnected());
    QVector<Answer> answers;
    link.client->sendRequest(kMethod, QJsonObject(), noteIn(&answers));
    QTRY_COMPARE(link.disconnections, 1);
    QCOMPARE(answers.size(), 1);
    QCOMPARE(answers.at(0).code(), -2);
}

void TestIpcClient::letsCallbacksSendAndDisconnect()
{
    Link link;
    QVERIFY(link.open());
    link.service.reply(kMethod, QJsonObject());
    int depth = 0;
    QVector<Answer> last;
    std::function<void()> next = [&] {
        if (++depth == 5) {
            link.client->sendRequest(QStringLiteral("no.such"), QJsonObject(), noteIn(&last));
            link.client->disconnectFromService();
        } else {
            link.client->sendRequest(
                kMethod, QJsonObject(),
                [&](bool, const QJsonObject &, const QJsonObject &) { next(); });
        }
    };
    next();
    QTRY_COMPARE(link.disconnections, 1);
    QCOMPARE(link.service.count(kMethod), 4);
    QCOMPARE(last.size(), 1);
    QCOMPARE(last.at(0).code(), -2);

    // What was in the same read is still delivered after a slot has disconnected.
    QTRY_COMPARE(link.service.clientCount(), 0);
    QVERIFY(link.open());
    connect(link.client, &IpcClient::eventReceived, link.client, &IpcClient::disconnectFromService);
    link.service.writeRaw(eventFrame(1) + eventFrame(2));
    QTRY_COMPARE(link.disconnections, 2);
    QCOMPARE(link.events, (QVector<int>{1, 2}));
}

void TestIpcClient::fetchesWhatCameWhileACallbackWaited()
{
    Link link;
    QVERIFY(link.open());
    connect(link.client, &IpcClient::eventReceived, link.client, [&] {
        if (link.events.size() > 1)
            return;
        link.service.writeRaw(eventFrame(2));
        // As in a modal dialog: the loop runs, but the socket does not signal a second time.
        QTRY_VERIFY(link.socket()->bytesAvailable() > 0);
    });
    link.service.writeRaw(eventFrame(1));
    QTRY_COMPARE(link.events, (QVector<int>{1, 2}));
}

void TestIpcClient::survivesItsDeletion_data()
{
    // Each arms one place to delete the client in, and makes it happen.
    using Act = std::function<void(Link *)>;
    const auto remove = [](Link *link) {
        return [link] {
            delete link->client.data();
        };
    };
    const auto removeInAnswer = [](Link *link) {
        return [link](bool, const QJsonObject &, const QJsonObject &) {
            delete link->client.data();
        };
    };
    QTest::addColumn<bool>("opened");
    QTest::addColumn<Act>("act");
    QTest::newRow("in connected()") << false << Act([=](Link *link) {
        QVERIFY(link->service.start());
        connect(link->client, &IpcClient::connected, link->client, remove(link));
        QVERIFY(!link->client->ensureConnected(500));
    });
    QTest::newRow("in connectionError()") << false << Act([=](Link *link) {
        connect(link->client, &IpcClient::connectionError, link->client, remove(link));
        QVERIFY(!link->client->ensureConnected(500));
    });
    QTest::newRow("in an answer without connection") << false << Act([=](Link *link) {
        link->client->sendRequest(kMethod, QJsonObject(), removeInAnswer(link));
    });
    QTest::newRow("in an event") << true << Act([=](Link *link) {
        connect(link->client, &IpcClient::eventReceived, link->client, remove(link));
        link->service.writeRaw(eventFrame(1) + eventFrame(2));
    });
    QTest::newRow("in an answer") << true << Act([=](Link *link) {
        link->client->sendRequest(QStringLiteral("unknown"), QJsonObject(), removeInAnswer(link));
    });
    QTest::newRow("in the error of a lost stream") << true << Act([=](Link *link) {
        connect(link->client, &IpcClient::connectionError, link->client, remove(link));
        link->service.writeRaw(QByteArrayLiteral("garbage!"));
    });
    QTest::newRow("in disconnected()") << true << Act([=](Link *link) {
        connect(link->client, &IpcClient::disconnected, link->client, remove(link));
        link->service.dropClients();
    });
    QTest::newRow("in the answer to a lost request") << true << Act([=](Link *link) {
        for (int i = 0; i < 2; ++i)
            link->client->sendRequest(kMethod, QJsonObject(), removeInAnswer(link));
        link->client->disconnectFromService();
    });
    QTest::newRow("in the answer to a failed write") << true << Act([=](Link *link) {
        link->service.dropClients();
        link->client->sendRequest(kMethod, QJsonObject(), removeInAnswer(link));
    });
}

void TestIpcClient::survivesItsDeletion()
{
    QFETCH(bool, opened);
    QFETCH(std::function<void(Link *)>, act);

    Link link;
    QVERIFY(!opened || link.open());
    link.service.hold(kMethod);
    act(&link);
    QTRY_VERIFY(link.client.isNull());
    QTRY_COMPARE(link.service.clientCount(), 0); // The service sees the end.
    QVERIFY(link.events.size() <= 1);
    QCOMPARE(
        link.disconnections,
        QString::fromLatin1(QTest::currentDataTag()) == QLatin1String("in disconnected()") ? 1 : 0);
}

void TestIpcClient::dropsCallbacksWhenDeleted()
{
    Link link;
    QVERIFY(link.open());
    link.service.hold(kMethod);
    QVector<Answer> answers;
    const auto captured = std::make_shared<int>(0);
    link.client->sendRequest(
        kMethod, QJsonObject(),
        [captured, note = noteIn(&answers)](bool ok, const QJsonObject &data,
                                            const QJsonObject &error) { note(ok, data, error); });
    QVERIFY(link.service.waitForRequest(kMethod));
    QCOMPARE(captured.use_count(), 2L);
    delete link.client;
    QCOMPARE(captured.use_count(), 1L);
    QTRY_COMPARE(link.service.clientCount(), 0);
    QVERIFY(link.service.release(kMethod, Reply::ok())); // To nobody.
    QVERIFY(answers.isEmpty());
}

void TestIpcClient::ensureConnectedTellsTheOutcome()
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

void TestIpcClient::ensureConnectedGivesUpInTime()
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
    client.connectToService(); // Is connecting still.

    others.append(::accept(server, nullptr, nullptr)); // A place gets free.
    QVERIFY(client.ensureConnected(3000));
    for (const int descriptor : qAsConst(others))
        ::close(descriptor);
    ::close(server);
}

void TestIpcClient::keepsHalfAFrameForTheNextConnection()
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

QTEST_GUILESS_MAIN(TestIpcClient)
#include "tst_ipcclient.moc"
