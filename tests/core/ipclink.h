#pragma once

#include "core/ipc/ipcclient.h"
#include "support/fakeservice.h"

#include <QPointer>
#include <QTest>

/// What the tests of the service link share.
namespace ipclink {

inline const QString kMethod = QStringLiteral("test.method");

inline QByteArray eventFrame(int number)
{
    return core::ipc::encodeJsonFrame(
        {{QStringLiteral("type"), QStringLiteral("event")},
         {QStringLiteral("event"), QStringLiteral("test.event")},
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

/// A service and a client of it, with everything that the client tells.
struct Link
{
    testsupport::FakeService service;
    QPointer<core::ipc::IpcClient> client = new core::ipc::IpcClient(service.name());
    QVector<int> events;
    QVector<Answer> answers;
    QStringList errors;
    int disconnections = 0;

    Link()
    {
        using core::ipc::IpcClient;
        service.hold(kMethod);
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
    /// Sends a request whose answer goes to `answers`; the service holds kMethod.
    void send(const QString &method = kMethod, const QJsonObject &params = QJsonObject())
    {
        client->sendRequest(
            method, params,
            [this](bool success, const QJsonObject &data, const QJsonObject &error) {
                answers.append({success, data, error});
            });
    }
    QLocalSocket *socket() const { return client->findChild<QLocalSocket *>(); }
};

} // namespace ipclink
