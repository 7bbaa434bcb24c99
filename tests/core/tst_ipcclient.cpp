#include "core/ipclink.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QSignalSpy>
#include <QUuid>

#include <numeric>

using core::ipc::encodeFrame;
using core::ipc::IpcClient;
using ipclink::eventFrame;
using ipclink::kMethod;
using ipclink::Link;

namespace {

QVector<int> upTo(int count)
{
    QVector<int> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

} // namespace

/// What crosses an open connection.
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
    void answersAtOnceWithoutConnection();
    void letsCallbacksSendAndDisconnect();
    void fetchesWhatCameWhileACallbackWaited();
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
    link.send();
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
    QCOMPARE(link.answers.size(), 1);
    QCOMPARE(link.answers.at(0).success, success);
    QCOMPARE(link.answers.at(0).data, QJsonDocument::fromJson(data.toUtf8()).object());
    QCOMPARE(link.answers.at(0).code(), code);
    QCOMPARE(link.answers.at(0).message(), message);
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
    link.send();
    link.service.writeRaw(eventFrame(1) + encodeFrame(body) + eventFrame(2));
    QTRY_COMPARE(link.events, (QVector<int>{1, 2}));
    QVERIFY(link.answers.isEmpty());
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
    QByteArray flood;
    for (int i = 0; i < kCount; ++i)
        flood += eventFrame(i);
    link.send();
    link.service.writeRaw(flood);
    QTRY_COMPARE_WITH_TIMEOUT(link.events.size(), kCount, 30000);
    QCOMPARE(link.events, upTo(kCount));
    QTRY_COMPARE(link.answers.size(), 1);
}

void TestIpcClient::carriesLargeFrames()
{
    Link link;
    QVERIFY(link.open());
    const QJsonObject large{{QStringLiteral("text"), QString(20000000, QLatin1Char('x'))}};
    link.service.reply(kMethod, large);
    link.send(kMethod, large);
    QTRY_COMPARE_WITH_TIMEOUT(link.answers.size(), 1, 60000);
    QVERIFY(link.answers.at(0).data == large);
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
    link.send();
    QVERIFY(link.service.waitForRequest(kMethod));
    link.service.writeRaw(bytes);
    QTRY_COMPARE(link.disconnections, 1);
    QCOMPARE(link.errors, QStringList{reason});
    QCOMPARE(link.events, events);
    QCOMPARE(link.answers.size(), 1);
    QCOMPARE(link.answers.at(0).code(), -2);

    // Nothing of the lost stream is left for the next connection.
    QTRY_COMPARE(link.service.clientCount(), 0);
    QVERIFY(link.open());
    link.service.writeRaw(eventFrame(7));
    QTRY_COMPARE(link.events.value(events.size()), 7);
}

void TestIpcClient::answersAtOnceWithoutConnection()
{
    Link link;
    link.send();
    QCOMPARE(link.answers.size(), 1);
    QCOMPARE(link.answers.at(0).success, false);
    QCOMPARE(link.answers.at(0).code(), -1);
    QCOMPARE(link.answers.at(0).message(),
             QStringLiteral("未连接到服务 (%1)").arg(link.service.name()));

    // Without a callback nothing happens, and nothing is kept for later.
    link.client->sendRequest(kMethod, QJsonObject());
    QVERIFY(link.open());
    link.client->sendRequest(QStringLiteral("second"), QJsonObject());
    QVERIFY(link.service.waitForRequest(QStringLiteral("second")));
    QCOMPARE(link.service.methods(), QStringList{QStringLiteral("second")});
    QCOMPARE(link.answers.size(), 1);
}

void TestIpcClient::letsCallbacksSendAndDisconnect()
{
    Link link;
    QVERIFY(link.open());
    link.service.reply(QStringLiteral("quick"), QJsonObject());
    int depth = 0;
    std::function<void()> next = [&] {
        if (++depth == 5) {
            link.send();
            link.client->disconnectFromService();
        } else {
            link.client->sendRequest(
                QStringLiteral("quick"), QJsonObject(),
                [&](bool, const QJsonObject &, const QJsonObject &) { next(); });
        }
    };
    next();
    QTRY_COMPARE(link.disconnections, 1);
    QCOMPARE(link.service.count(QStringLiteral("quick")), 4);
    QCOMPARE(link.answers.size(), 1);
    QCOMPARE(link.answers.at(0).code(), -2);

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

QTEST_GUILESS_MAIN(TestIpcClient)
#include "tst_ipcclient.moc"
