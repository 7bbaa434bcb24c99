#include "common/servicehost.h"

#include "common/servicemanager.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QPointer>

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace services {

using core::ipc::FrameDecoder;

namespace {

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

struct ServiceHost::Client
{
    enum class Authorization { NotAsked, Asked, Given };
    struct Waiting
    {
        Request request;
        QString requestId;
        Respond respond;
    };

    Peer peer;
    quint64 connection;
    QString refusal; ///< Empty if the client is admitted.
    Authorization authorization = Authorization::Given;
    QVector<Waiting> waiting; ///< Requests that came before the authorization.
    FrameDecoder decoder;
    int pendingRequests = 0;
    qint64 largestUnsent = 0; ///< Largest frame since everything was sent, in bytes.

    Client(const Peer &who, quint64 number, const QString &why)
        : peer(who)
        , connection(number)
        , refusal(why)
        , decoder(why.isEmpty() ? kMaxRequestBytes : kMaxRefusedRequestBytes)
    {}
    bool isAdmitted() const { return refusal.isEmpty(); }
    bool mayHear() const { return isAdmitted() && authorization == Authorization::Given; }
};

ServiceHost::ServiceHost(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &ListeningSocket::accepted, this, &ServiceHost::accept);
}

ServiceHost::~ServiceHost()
{
    close();
}

void ServiceHost::setAccess(SocketAccess access, gid_t group)
{
    m_access = access;
    m_group = group;
}

bool ServiceHost::listen(const QString &serviceName, QString *error)
{
    if (m_server.isListening()) {
        if (error)
            *error = QStringLiteral("已在监听 %1").arg(m_server.path());
        return false;
    }
    const int activated = takeActivationSocket();
    return activated >= 0 ? m_server.adopt(activated, error)
                          : m_server.listen(serviceName, m_access, m_group, error);
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

void ServiceHost::handle(const QString &method, const RequestHandler &handler)
{
    m_handlers.insert(method, handler);
}

void ServiceHost::handle(const QString &method,
                         const std::function<Reply(const Request &)> &handler)
{
    handle(method, RequestHandler([handler](const Request &request, const Respond &respond) {
               respond(handler(request));
           }));
}

void ServiceHost::handle(const QString &method, const Handler &handler)
{
    handle(method, RequestHandler([handler](const Request &request, const Respond &respond) {
               handler(request.params, respond);
           }));
}

void ServiceHost::handle(const QString &method,
                         const std::function<Reply(const QJsonObject &)> &handler)
{
    handle(method, RequestHandler([handler](const Request &request, const Respond &respond) {
               respond(handler(request.params));
           }));
}

void ServiceHost::broadcast(const QString &event, const QJsonObject &data,
                            const PeerFilter &isMeant)
{
    const QByteArray frame =
        core::ipc::encodeJsonFrame({{QStringLiteral("type"), QStringLiteral("event")},
                                    {QStringLiteral("event"), event},
                                    {QStringLiteral("data"), data}});
    const QList<QLocalSocket *> sockets = clientSockets();
    for (QLocalSocket *socket : sockets) {
        // Sending to one client may end another.
        const ClientPtr client = m_clients.value(socket);
        if (client && client->mayHear() && (!isMeant || isMeant(client->peer)))
            send(socket, frame);
    }
}

void ServiceHost::accept(int descriptor)
{
    Peer peer;
    QString refusal;
    if (!core::ipc::readPeer(descriptor, &peer, &refusal)) {
        qWarning() << "[ServiceHost] client refused:" << refusal;
        ::close(descriptor);
        return;
    }
    const auto ofSameUser = [&peer](const ClientPtr &client) {
        return client->peer.uid == peer.uid;
    };
    if (std::count_if(m_clients.cbegin(), m_clients.cend(), ofSameUser) >= kMaxClientsPerUser) {
        qWarning() << "[ServiceHost] client refused: too many connections of user" << peer.uid;
        ::close(descriptor);
        return;
    }
    if (m_admission && !m_admission(peer, &refusal)) {
        qWarning() << "[ServiceHost] not admitted: user" << peer.uid << "process" << peer.pid;
        if (refusal.isEmpty())
            refusal = QStringLiteral("没有使用此服务的权限");
    } else {
        refusal.clear();
    }

    auto *const socket = new QLocalSocket(this);
    const auto client = std::make_shared<Client>(peer, ++m_connections, refusal);
    if (m_authorizer)
        client->authorization = Client::Authorization::NotAsked;
    m_clients.insert(socket, client);
    connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readFrom(socket); });
    connect(socket, &QLocalSocket::disconnected, this, [this, socket] { forget(socket); });
    if (!socket->setSocketDescriptor(descriptor)) {
        ::close(descriptor);
        forget(socket);
        return;
    }
    emit clientConnected();
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

void ServiceHost::drop(QLocalSocket *socket, const char *why)
{
    qWarning() << "[ServiceHost] client dropped:" << why;
    forget(socket);
    socket->abort();
}

void ServiceHost::send(QLocalSocket *socket, const QByteArray &frame)
{
    const ClientPtr client = m_clients.value(socket);
    if (!client)
        return;
    const qint64 unsent = socket->bytesToWrite();
    if (unsent == 0)
        client->largestUnsent = 0;
    if (unsent > kMaxUnsentBytes + client->largestUnsent) {
        drop(socket, "does not read");
        return;
    }
    client->largestUnsent = std::max(client->largestUnsent, qint64(frame.size()));
    socket->write(frame);
    socket->flush();
}

void ServiceHost::readFrom(QLocalSocket *socket)
{
    // A handler may drop this client; the decoder lives on until the loop ends.
    const ClientPtr client = m_clients.value(socket);
    QByteArray body;
    do {
        client->decoder.append(socket->readAll());
        FrameDecoder::Result result;
        while ((result = client->decoder.next(&body)) == FrameDecoder::Result::Frame) {
            processFrame(socket, body);
            if (!m_clients.contains(socket))
                return;
        }
        if (result != FrameDecoder::Result::NeedMore) {
            drop(socket, result == FrameDecoder::Result::TooLarge ? "request too large"
                                                                  : "not a stream of frames");
            return;
        }
    } while (socket->bytesAvailable() > 0);
}

ServiceHost::Respond ServiceHost::responder(QLocalSocket *socket, const QString &requestId,
                                            const QString &method)
{
    const ClientPtr client = m_clients.value(socket);
    ++client->pendingRequests;
    const QPointer<ServiceHost> host(this);
    const auto answered = std::make_shared<bool>(false);
    QElapsedTimer clock;
    clock.start();
    return [host, socket, client, requestId, method, answered, clock](const Reply &reply) {
        // Another client may have got the address of one that has gone.
        if (*answered || !host || host->m_clients.value(socket) != client)
            return;
        *answered = true;
        --client->pendingRequests;
        emit host->requestAnswered({requestId, method, client->peer, reply}, clock.elapsed());
        host->send(socket, core::ipc::encodeJsonFrame(responseObject(requestId, reply)));
    };
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

    const ClientPtr client = m_clients.value(socket);
    const QString method = frame.value(QLatin1String("method")).toString();
    const Respond respond = responder(socket, requestId, method);
    if (!client->isAdmitted()) {
        respond(Reply::failure(kRefusedCode, client->refusal));
        return;
    }
    if (client->pendingRequests > kMaxPendingRequests) {
        respond(Reply::failure(kTooManyRequestsCode, QStringLiteral("未完成的请求过多")));
        return;
    }

    const Request request{method, frame.value(QLatin1String("params")).toObject(), client->peer,
                          client->connection};
    if (client->authorization == Client::Authorization::Given) {
        run(request, requestId, respond);
        return;
    }
    client->waiting.append({request, requestId, respond});
    if (client->authorization == Client::Authorization::NotAsked)
        authorize(socket);
}

void ServiceHost::authorize(QLocalSocket *socket)
{
    const ClientPtr client = m_clients.value(socket);
    client->authorization = Client::Authorization::Asked;
    const QPointer<ServiceHost> host(this);
    m_authorizer(client->peer, [host, socket, client](bool isAllowed, const QString &reason) {
        // Another client may have got the address of one that has gone.
        if (client->authorization != Client::Authorization::Asked || !host ||
            host->m_clients.value(socket) != client)
            return;
        client->authorization = Client::Authorization::Given;
        if (!isAllowed)
            client->refusal = reason.isEmpty() ? QStringLiteral("没有使用此服务的权限") : reason;
        const QVector<Client::Waiting> waiting = std::exchange(client->waiting, {});
        for (const Client::Waiting &each : waiting) {
            if (isAllowed)
                host->run(each.request, each.requestId, each.respond);
            else
                each.respond(Reply::failure(kRefusedCode, client->refusal));
            if (!host)
                return;
        }
    });
}

void ServiceHost::run(const Request &request, const QString &requestId, const Respond &respond)
{
    emit requestReceived(request.method, request.params, requestId);
    const RequestHandler handler = m_handlers.value(request.method);
    if (handler)
        handler(request, respond);
    else
        respond(
            Reply::failure(kUnknownMethodCode, QStringLiteral("未知方法：%1").arg(request.method)));
}

} // namespace services
