#pragma once

#include "core/ipc/framecodec.h"
#include "core/ipc/peer.h"

#include <QJsonObject>
#include <QLocalSocket>
#include <QMap>
#include <QObject>

#include <functional>

namespace core::ipc {

/// Receives the answer to one request. `error` holds `code` and `message` when `success` is false:
/// the service's own, or -1 (not connected) or -2 (connection lost) made by the client.
using ResponseCallback =
    std::function<void(bool success, const QJsonObject &data, const QJsonObject &error)>;

/// Which service a client talks to when several processes offer the same name.
struct ServicePolicy
{
    /// Tried first: only root can make a socket here.
    QString systemDir = QStringLiteral("/run/morvane");
    /// The process that has accepted the connection must pass; nothing is sent to another.
    std::function<bool(const Peer &service)> isTrusted;

    /// The process that may be told a password, too.
    std::function<bool(const Peer &service)> mayHearSecrets;

    /// Trusts root and the own user; with passwords, root alone.
    ServicePolicy();
};

/// Client of one local service: requests, responses and events as JSON in frames. It knows no
/// method. It never reconnects by itself and has no time-out for a request; its owners have.
/// Lives on the thread that made it; callbacks and signals come from that thread's event loop.
class IpcClient : public QObject
{
    Q_OBJECT

public:
    /// `serviceName` is the name of a socket in the policy's folder or, failing that, in the
    /// temporary folder; or an absolute path.
    explicit IpcClient(const QString &serviceName, QObject *parent = nullptr,
                       const ServicePolicy &policy = ServicePolicy());
    /// May run inside a callback or slot of this client. Pending callbacks are not called.
    ~IpcClient() override;

    /// Starts connecting, unless connected or connecting already. Does not block.
    void connectToService();
    /// Connects and blocks for at most `timeoutMs`; true once connected.
    [[nodiscard]] bool ensureConnected(int timeoutMs);
    void disconnectFromService();
    bool isConnected() const;
    /// Whether the service that is connected may be told a password.
    bool mayHearSecrets() const { return isConnected() && m_policy.mayHearSecrets(m_service); }
    /// Why the service was refused at the last attempt, in words for the user; empty if it was not.
    QString refusal() const { return m_refusal; }

    /// Sends a request. Without a connection the callback is called at once, inside this call,
    /// with code -1; otherwise exactly once, when the answer comes or the connection is lost
    /// (code -2). A write that finds the service gone loses the connection inside this call.
    /// Without a callback the answer is dropped.
    void sendRequest(const QString &method, const QJsonObject &params,
                     ResponseCallback callback = ResponseCallback());

signals:
    void connected();
    void disconnected();
    /// The socket's own error text, or why the service was refused or its stream given up: not a
    /// trusted process, a wrong magic, or a frame above kMaxBodySize. After the latter three the
    /// connection is closed; a refused service has never been reported by connected().
    void connectionError(const QString &reason);
    void eventReceived(const QString &eventName, const QJsonObject &data);

private slots:
    void onConnected();
    void onDisconnected();
    void onError(QLocalSocket::LocalSocketError code);
    void onReadyRead();

private:
    class SocketSignalScope;

    void startConnecting();
    /// False, with the reason in m_refusal, if the service must not be talked to.
    bool isServiceTrusted();
    void sendJsonFrame(const QJsonObject &object);
    /// False once the stream is given up or the client is gone.
    bool processFrames(const SocketSignalScope &scope);
    void giveUpStream(const QString &reason, const SocketSignalScope &scope);
    void processFrame(const QByteArray &body);

    QString m_serviceName;
    ServicePolicy m_policy;
    Peer m_service;                   ///< Of the present connection.
    QString m_refusal;                ///< Why the last connection was refused; else empty.
    bool m_triesSystemSocket = false; ///< Its failure is no error: the plain name comes next.
    QLocalSocket *m_socket;
    QMap<QString, ResponseCallback> m_pending;
    FrameDecoder m_readBuffer;
    int m_socketSignalDepth = 0; ///< Above 0 while the socket is inside one of its signals.
};

} // namespace core::ipc
