#include "common/servicehost.h"

#include <QDebug>
#include <QJsonDocument>
#include <QPointer>

namespace services {

using core::ipc::FrameDecoder;

namespace {

// A live service accepts at once, or keeps a caller waiting when it is busy; only a leftover socket
// file refuses.
constexpr int kProbeTimeoutMs = 500;

bool isLeftover(const QString &serviceName)
{
    QLocalSocket probe;
    probe.connectToServer(serviceName);
    return !probe.waitForConnected(kProbeTimeoutMs) &&
           probe.error() == QLocalSocket::ConnectionRefusedError;
}

QJsonObject responseObject(const QString &requestId, const Reply &reply)
{
    QJsonObject response{{QStringLiteral("type"), QStringLiteral("response")},
                         {QStringLiteral("requestId"), requestId},
                         {QStringLiteral("success"), reply.success},
                         {QStringLiteral("data"), reply.data}};
    if (!reply.success)
        response.insert(QStringLiteral("error"),
                        QJsonObject{{QStringLiteral("code"), reply.errorCode},
                                    {QStringLiteral("message"), reply.errorMessage}});
    return response;
}

void send(QLocalSocket *socket, const QByteArray &frame)
{
    socket->write(frame);
    socket->flush();
}

} // namespace

Reply Reply::ok(const QJsonObject &data)
{
    Reply reply;
    reply.data = data;
    return reply;
}

Reply Reply::failure(int code, const QString &message)
{
    Reply reply;
    reply.success = false;
    reply.errorCode = code;
    reply.errorMessage = message;
    return reply;
}

ServiceHost::ServiceHost(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &QLocalServer::newConnection, this, &ServiceHost::acceptClients);
}

ServiceHost::~ServiceHost()
{
    close();
}

bool ServiceHost::listen(const QString &serviceName, QString *error)
{
    if (m_server.isListening()) {
        if (error)
            *error = QStringLiteral("已在监听 %1").arg(m_server.serverName());
        return false;
    }
    bool listening = m_server.listen(serviceName);
    if (!listening && m_server.serverError() == QAbstractSocket::AddressInUseError &&
        isLeftover(serviceName)) {
        QLocalServer::removeServer(serviceName);
        listening = m_server.listen(serviceName);
    }
    if (!listening && error)
        *error = m_server.errorString();
    return listening;
}

void ServiceHost::dropClients()
{
    // The slots on `disconnected` may come back here, so the map is never walked while it changes.
    while (!m_clients.isEmpty()) {
        QLocalSocket *const socket = m_clients.cbegin().key();
        forget(socket);
        socket->abort();
    }
}

void ServiceHost::close()
{
    m_server.close();
    dropClients();
}

void ServiceHost::handle(const QString &method, const Handler &handler)
{
    m_handlers.insert(method, handler);
}

void ServiceHost::handle(const QString &method,
                         const std::function<Reply(const QJsonObject &)> &handler)
{
    handle(method, Handler([handler](const QJsonObject &params, const Respond &respond) {
               respond(handler(params));
           }));
}

void ServiceHost::broadcast(const QString &event, const QJsonObject &data)
{
    const QByteArray frame =
        core::ipc::encodeJsonFrame({{QStringLiteral("type"), QStringLiteral("event")},
                                    {QStringLiteral("event"), event},
                                    {QStringLiteral("data"), data}});
    const QList<QLocalSocket *> sockets = clientSockets();
    for (QLocalSocket *socket : sockets)
        send(socket, frame);
}

void ServiceHost::acceptClients()
{
    while (QLocalSocket *const socket = m_server.nextPendingConnection()) {
        m_clients.insert(socket, std::make_shared<FrameDecoder>());
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QLocalSocket::disconnected, this, [this, socket] { forget(socket); });
        emit clientConnected();
    }
}

/// Takes the client off the list; the socket, which may be inside a signal, is freed later.
void ServiceHost::forget(QLocalSocket *socket)
{
    if (m_clients.remove(socket) == 0)
        return;
    socket->disconnect(this);
    socket->deleteLater();
    emit clientDisconnected();
}

void ServiceHost::readFrom(QLocalSocket *socket)
{
    // A handler may drop this client; the decoder lives on until the loop ends.
    const DecoderPtr decoder = m_clients.value(socket);
    QByteArray body;
    do {
        decoder->append(socket->readAll());
        FrameDecoder::Result result;
        while ((result = decoder->next(&body)) == FrameDecoder::Result::Frame) {
            processFrame(socket, body);
            if (!m_clients.contains(socket))
                return;
        }
        if (result != FrameDecoder::Result::NeedMore) {
            qWarning() << "[ServiceHost] client dropped: not a stream of frames";
            forget(socket);
            socket->abort();
            return;
        }
    } while (socket->bytesAvailable() > 0);
}

void ServiceHost::processFrame(QLocalSocket *socket, const QByteArray &body)
{
    const QJsonObject frame = QJsonDocument::fromJson(body).object();
    const QString requestId = frame.value(QLatin1String("requestId")).toString();
    if (frame.value(QLatin1String("type")).toString() != QLatin1String("request") ||
        requestId.isEmpty()) {
        qWarning() << "[ServiceHost] frame ignored: not a request";
        return;
    }

    const QString method = frame.value(QLatin1String("method")).toString();
    const QJsonObject params = frame.value(QLatin1String("params")).toObject();
    const auto answered = std::make_shared<bool>(false);
    const QPointer<QLocalSocket> client(socket);
    const Respond respond = [client, requestId, answered](const Reply &reply) {
        if (*answered || !client || client->state() != QLocalSocket::ConnectedState)
            return;
        *answered = true;
        send(client, core::ipc::encodeJsonFrame(responseObject(requestId, reply)));
    };

    emit requestReceived(method, params, requestId);
    const Handler handler = m_handlers.value(method);
    if (handler)
        handler(params, respond);
    else
        respond(Reply::failure(kUnknownMethodCode, QStringLiteral("未知方法：%1").arg(method)));
}

} // namespace services
