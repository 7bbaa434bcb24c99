#pragma once

#include "common/listeningsocket.h"
#include "core/ipc/framecodec.h"
#include "core/ipc/peer.h"

#include <QHash>
#include <QJsonObject>
#include <QLocalSocket>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace services {

using core::ipc::Peer;

/// What a method handler gives back.
struct Reply
{
    bool success = true;
    QJsonObject data;
    int errorCode = 0;
    QString errorMessage;

    static Reply ok(const QJsonObject &data = QJsonObject());
    static Reply failure(int code, const QString &message);
};

/// A request together with who sent it. What a client may do depends on its user, never on what it
/// says about itself.
struct Request
{
    QString method;
    QJsonObject params;
    Peer peer;
    quint64 connection = 0; ///< Above 0; of this connection only, as long as the host lives.
};

/// A request that has got its answer, for accounts of what a service did.
struct AnsweredRequest
{
    QString requestId; ///< As the client chose it.
    QString method;
    Peer peer;
    Reply reply;
};

/// The service side of the protocol: accepts clients on a local socket, decodes their requests,
/// calls the method's handler and sends its reply; events go to every client that they are meant
/// for. A client whose stream is not one of frames, or that does not read what it is sent, is
/// dropped. One thread, event-driven; handlers and slots may close() the host but not delete it.
/// A service is a host and its handlers:
///
///     services::ServiceHost host;
///     host.handle(QStringLiteral("disk.enumerate"), [](const QJsonObject &) {
///         return services::Reply::ok(enumerateDisks());
///     });
///     if (!host.listen(QStringLiteral("morvane-service-v1"), &error)) …
class ServiceHost : public QObject
{
    Q_OBJECT

public:
    static constexpr int kUnknownMethodCode = 404;
    static constexpr int kRefusedCode = 403; ///< The client's user may not use the service.
    static constexpr int kTooManyRequestsCode = 429;

    // Limits of one client. A single answer may be of any size, so the bytes that wait for a client
    // are limited beyond the largest frame among them.
    static constexpr int kMaxRequestBytes = 64 * 1024 * 1024;
    static constexpr int kMaxRefusedRequestBytes = 64 * 1024;
    static constexpr int kMaxPendingRequests = 1024;
    static constexpr qint64 kMaxUnsentBytes = 64 * 1024 * 1024;
    static constexpr int kMaxClientsPerUser = 32;

    /// `respond` may be called now or later, on the host's thread: work that blocks belongs on
    /// another thread, whose result comes back through a Mailbox. The first call counts. It does
    /// nothing when the client or the host has gone.
    using Respond = std::function<void(const Reply &)>;
    using Handler = std::function<void(const QJsonObject &params, const Respond &respond)>;
    using RequestHandler = std::function<void(const Request &request, const Respond &respond)>;
    /// Whether the user may use the service; sets `reason`, a text for the user, if not.
    using Admission = std::function<bool(const Peer &peer, QString *reason)>;
    using PeerFilter = std::function<bool(const Peer &peer)>;
    using Decide = std::function<void(bool isAllowed, const QString &reason)>;
    /// As Admission, but the answer may come later, on the host's thread; the first one counts.
    using Authorizer = std::function<void(const Peer &peer, const Decide &decide)>;

    explicit ServiceHost(QObject *parent = nullptr);
    ~ServiceHost() override;

    /// Who may connect, from the next listen() on; SocketAccess::Owner at first. `group` counts
    /// only with SocketAccess::Group.
    void setAccess(SocketAccess access, gid_t group = gid_t(-1));
    /// Judges each client once, when it connects. One that is not admitted gets no events, and
    /// kRefusedCode with the reason for each request. Without a judge, everyone is admitted.
    void setAdmission(const Admission &admission) { m_admission = admission; }
    /// Asked once for each admitted client, at its first request, for instance by a dialog. Until
    /// the answer comes the client's requests wait and it gets no events.
    void setAuthorizer(const Authorizer &authorizer) { m_authorizer = authorizer; }

    /// Listens under `serviceName`, a plain name or an absolute path, taking over a leftover socket
    /// file; or on the socket that the service manager has opened for this process. Fails if
    /// another process answers under that name, or if this host listens already.
    [[nodiscard]] bool listen(const QString &serviceName, QString *error = nullptr);
    bool isListening() const { return m_server.isListening(); }
    /// Drops all clients and goes on listening.
    void dropClients();
    /// Drops all clients and stops listening.
    void close();

    /// Handler for one method; a later one replaces it. A request for an unknown method is answered
    /// with kUnknownMethodCode.
    void handle(const QString &method, const Handler &handler);
    /// Shorthand for a handler that answers at once.
    void handle(const QString &method, const std::function<Reply(const QJsonObject &)> &handler);
    // The same for handlers that need to know who asks.
    void handle(const QString &method, const RequestHandler &handler);
    void handle(const QString &method, const std::function<Reply(const Request &)> &handler);

    /// Sends an event to every admitted client, or to those whose user passes the filter.
    void broadcast(const QString &event, const QJsonObject &data,
                   const PeerFilter &isMeant = PeerFilter());
    int clientCount() const { return m_clients.size(); }

signals:
    void clientConnected();
    void clientDisconnected();
    /// Every request as it arrives, before its handler runs.
    void requestReceived(const QString &method, const QJsonObject &params,
                         const QString &requestId);
    /// Every request when its answer goes out, the refused ones, too.
    void requestAnswered(const services::AnsweredRequest &request, qint64 elapsedMs);

protected:
    QList<QLocalSocket *> clientSockets() const { return m_clients.keys(); }

private:
    struct Client;
    using ClientPtr = std::shared_ptr<Client>;

    void accept(int descriptor);
    void forget(QLocalSocket *socket);
    void drop(QLocalSocket *socket, const char *why);
    void send(QLocalSocket *socket, const QByteArray &frame);
    void readFrom(QLocalSocket *socket);
    void processFrame(QLocalSocket *socket, const QByteArray &body);
    Respond responder(QLocalSocket *socket, const QString &requestId, const QString &method);
    void authorize(QLocalSocket *socket);
    void run(const Request &request, const QString &requestId, const Respond &respond);

    ListeningSocket m_server;
    SocketAccess m_access = SocketAccess::Owner;
    gid_t m_group = gid_t(-1);
    Admission m_admission;
    quint64 m_connections = 0; ///< So many there have been.
    Authorizer m_authorizer;
    QHash<QLocalSocket *, ClientPtr> m_clients;
    QHash<QString, RequestHandler> m_handlers;
};

} // namespace services
