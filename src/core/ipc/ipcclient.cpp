#include "core/ipc/ipcclient.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QPointer>
#include <QSignalBlocker>
#include <QUuid>

#include <unistd.h>

namespace core::ipc {

namespace {

enum ClientErrorCode { NotConnected = -1, ConnectionLost = -2 };

QJsonObject makeError(ClientErrorCode code, const QString &message)
{
    return {{QStringLiteral("code"), code}, {QStringLiteral("message"), message}};
}

} // namespace

ServicePolicy::ServicePolicy()
    : isTrusted([](const Peer &service) { return isTrustedService(service, ::geteuid()); })
    , mayHearSecrets([](const Peer &service) { return service.uid == 0; })
{}

/// Marks that the socket is inside one of its signals, for the destructor. The client may be gone
/// when the scope ends.
class IpcClient::SocketSignalScope
{
public:
    explicit SocketSignalScope(IpcClient *client)
        : m_client(client)
    {
        ++m_client->m_socketSignalDepth;
    }
    ~SocketSignalScope()
    {
        if (m_client)
            --m_client->m_socketSignalDepth;
    }
    SocketSignalScope(const SocketSignalScope &) = delete;
    SocketSignalScope &operator=(const SocketSignalScope &) = delete;

    bool isClientAlive() const { return !m_client.isNull(); }

private:
    QPointer<IpcClient> m_client;
};

IpcClient::IpcClient(const QString &serviceName, QObject *parent, const ServicePolicy &policy)
    : QObject(parent)
    , m_serviceName(serviceName)
    , m_policy(policy)
    , m_socket(new QLocalSocket(this))
{
    connect(m_socket, &QLocalSocket::connected, this, &IpcClient::onConnected);
    connect(m_socket, &QLocalSocket::disconnected, this, &IpcClient::onDisconnected);
    connect(m_socket, QOverload<QLocalSocket::LocalSocketError>::of(&QLocalSocket::error), this,
            &IpcClient::onError);
    connect(m_socket, &QLocalSocket::readyRead, this, &IpcClient::onReadyRead);
}

IpcClient::~IpcClient()
{
    m_socket->disconnect(this);
    if (m_socketSignalDepth > 0) {
        // A callback or slot deletes the client from inside one of the socket's signals: the socket
        // is still on the stack and must outlive this call, but the service sees the end now.
        m_socket->setParent(nullptr);
        m_socket->abort();
        m_socket->deleteLater();
    }
}

void IpcClient::connectToService()
{
    const QLocalSocket::LocalSocketState state = m_socket->state();
    if (state == QLocalSocket::ConnectedState || state == QLocalSocket::ConnectingState)
        return;
    startConnecting();
}

bool IpcClient::ensureConnected(int timeoutMs)
{
    if (isConnected())
        return true;

    const QPointer<IpcClient> self(this);
    if (m_socket->state() != QLocalSocket::ConnectingState)
        startConnecting();
    // A slot on connected() or connectionError() may have deleted the client meanwhile.
    return self && m_socket->waitForConnected(timeoutMs) && self;
}

void IpcClient::disconnectFromService()
{
    if (m_socket->state() != QLocalSocket::UnconnectedState)
        m_socket->disconnectFromServer();
}

bool IpcClient::isConnected() const
{
    return m_socket->state() == QLocalSocket::ConnectedState;
}

void IpcClient::sendRequest(const QString &method, const QJsonObject &params,
                            ResponseCallback callback)
{
    if (!isConnected()) {
        if (!callback)
            return;
        QString message = QStringLiteral("未连接到服务 (%1)").arg(m_serviceName);
        if (!m_refusal.isEmpty())
            message += QStringLiteral("：") + m_refusal;
        callback(false, QJsonObject(), makeError(NotConnected, message));
        return;
    }

    const QString requestId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    if (callback)
        m_pending.insert(requestId, std::move(callback));

    sendJsonFrame({{QStringLiteral("type"), QStringLiteral("request")},
                   {QStringLiteral("requestId"), requestId},
                   {QStringLiteral("method"), method},
                   {QStringLiteral("params"), params}});
}

void IpcClient::startConnecting()
{
    // Ends a connection that is still closing, whose callbacks may do anything.
    const QPointer<IpcClient> self(this);
    m_socket->abort();
    if (!self || m_socket->state() != QLocalSocket::UnconnectedState)
        return;

    qInfo() << "[IPC] connecting to service:" << m_serviceName;
    m_refusal.clear();
    const QString systemSocket = m_policy.systemDir + QLatin1Char('/') + m_serviceName;
    if (!QDir::isAbsolutePath(m_serviceName) && QFileInfo::exists(systemSocket)) {
        // A local socket connects, or fails, inside the call; only a busy service takes longer.
        m_triesSystemSocket = true;
        m_socket->connectToServer(systemSocket, QIODevice::ReadWrite);
        if (!self)
            return;
        const bool hasFailed = m_triesSystemSocket;
        m_triesSystemSocket = false;
        if (!hasFailed || m_socket->state() != QLocalSocket::UnconnectedState)
            return;
    }
    m_socket->connectToServer(m_serviceName, QIODevice::ReadWrite);
}

bool IpcClient::isServiceTrusted()
{
    if (!readPeer(m_socket->socketDescriptor(), &m_service, &m_refusal))
        return false;
    if (!m_policy.isTrusted(m_service))
        m_refusal = QStringLiteral("提供该服务的进程属于其他用户（UID %1），不可信任，已拒绝连接")
                        .arg(m_service.uid);
    return m_refusal.isEmpty();
}

void IpcClient::sendJsonFrame(const QJsonObject &object)
{
    // A write that finds the peer gone drops the connection, and so calls back, in here.
    QLocalSocket *const socket = m_socket;
    socket->write(encodeJsonFrame(object));
    socket->flush();
}

void IpcClient::onConnected()
{
    const SocketSignalScope scope(this);
    m_triesSystemSocket = false;
    if (!isServiceTrusted()) {
        qWarning() << "[IPC] service refused:" << m_serviceName << m_refusal;
        {
            // The owner has not heard of the connection, so it hears nothing of its end.
            const QSignalBlocker blocker(m_socket);
            m_socket->abort();
        }
        emit connectionError(m_refusal);
        return;
    }
    qInfo() << "[IPC] connected";
    emit connected();
}

void IpcClient::onError(QLocalSocket::LocalSocketError code)
{
    const SocketSignalScope scope(this);
    qWarning() << "[IPC] error:" << code << m_socket->errorString();
    if (m_triesSystemSocket)
        return;
    emit connectionError(m_socket->errorString());
}

void IpcClient::onDisconnected()
{
    const SocketSignalScope scope(this);
    qWarning() << "[IPC] disconnected";

    // The member is empty before the first callback runs, so each may send anew.
    QMap<QString, ResponseCallback> dropped;
    dropped.swap(m_pending);
    const QJsonObject error =
        makeError(ConnectionLost, QStringLiteral("与服务 (%1) 的连接已断开").arg(m_serviceName));
    for (const ResponseCallback &callback : qAsConst(dropped)) {
        callback(false, QJsonObject(), error);
        if (!scope.isClientAlive())
            return;
    }
    // The read buffer is left alone on purpose: half a frame stays in it for the next connection.
    emit disconnected();
}

void IpcClient::onReadyRead()
{
    const SocketSignalScope scope(this);
    // The socket does not signal again while a callback holds up this slot, in a dialog for
    // instance; what came meanwhile is fetched by the next round.
    do {
        m_readBuffer.append(m_socket->readAll());
        if (!processFrames(scope))
            return;
    } while (m_socket->bytesAvailable() > 0);
}

bool IpcClient::processFrames(const SocketSignalScope &scope)
{
    QByteArray body;
    for (;;) {
        switch (m_readBuffer.next(&body)) {
        case FrameDecoder::Result::NeedMore:
            return true;
        case FrameDecoder::Result::Frame:
            processFrame(body);
            if (!scope.isClientAlive())
                return false;
            break;
        case FrameDecoder::Result::BadMagic:
            giveUpStream(QStringLiteral("IPC 帧魔数不匹配"), scope);
            return false;
        case FrameDecoder::Result::TooLarge:
            giveUpStream(QStringLiteral("IPC 帧过大，无法接收"), scope);
            return false;
        }
    }
}

void IpcClient::giveUpStream(const QString &reason, const SocketSignalScope &scope)
{
    // There is no resynchronisation. The buffer goes first, so that a slot that reconnects does not
    // meet the bad bytes again.
    m_readBuffer.clear();
    emit connectionError(reason);
    if (scope.isClientAlive())
        m_socket->disconnectFromServer();
}

void IpcClient::processFrame(const QByteArray &body)
{
    const QJsonObject frame = QJsonDocument::fromJson(body).object();
    const QString type = frame.value(QLatin1String("type")).toString();
    const QJsonObject data = frame.value(QLatin1String("data")).toObject();
    if (type == QLatin1String("event")) {
        emit eventReceived(frame.value(QLatin1String("event")).toString(), data);
        return;
    }
    if (type != QLatin1String("response"))
        return;

    const QString requestId = frame.value(QLatin1String("requestId")).toString();
    const ResponseCallback callback = m_pending.take(requestId);
    if (!callback)
        return; // A late or unknown answer is harmless.

    const bool success = frame.value(QLatin1String("success")).toBool();
    const QJsonObject error = frame.value(QLatin1String("error")).toObject();
    if (!success)
        qWarning() << "[IPC] request failed:" << requestId
                   << error.value(QLatin1String("message")).toString();
    callback(success, data, error);
}

} // namespace core::ipc
