#include "common/mailbox.h"
#include "common/servicehost.h"
#include "core/ipc/ipcclient.h"

#include <QFile>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using core::ipc::IpcClient;
using services::Reply;
using services::ServiceHost;

namespace {

const QString kName = QStringLiteral("host");

const QByteArray kRequest =
    core::ipc::encodeFrame(QByteArrayLiteral(R"({"type":"request","requestId":"r","method":"m"})"));

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
