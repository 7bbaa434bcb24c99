#pragma once

#include "core/ipc/framecodec.h"

#include <QHash>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace services {

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

/// The service side of the protocol: accepts clients on a local socket, decodes their requests,
/// calls the method's handler and sends its reply; events go to every client. A client whose stream
/// is not one of frames is dropped. One thread, event-driven; handlers and slots may close() the
/// host but not delete it. A service is a host and its handlers:
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

    /// `respond` may be called now or later; the first call counts. It does nothing when the client
    /// or the host has gone.
    using Respond = std::function<void(const Reply &)>;
    using Handler = std::function<void(const QJsonObject &params, const Respond &respond)>;

    explicit ServiceHost(QObject *parent = nullptr);
    ~ServiceHost() override;

    /// Listens under `serviceName`, taking over a leftover socket file. Fails if another process
    /// answers under that name, or if this host listens already.
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

    /// Sends an event to every connected client.
    void broadcast(const QString &event, const QJsonObject &data);
    int clientCount() const { return m_clients.size(); }

signals:
    void clientConnected();
    void clientDisconnected();
    /// Every request as it arrives, before its handler runs.
    void requestReceived(const QString &method, const QJsonObject &params,
                         const QString &requestId);

protected:
    QList<QLocalSocket *> clientSockets() const { return m_clients.keys(); }

private:
    using DecoderPtr = std::shared_ptr<core::ipc::FrameDecoder>;

    void acceptClients();
    void forget(QLocalSocket *socket);
    void readFrom(QLocalSocket *socket);
    void processFrame(QLocalSocket *socket, const QByteArray &body);

    QLocalServer m_server;
    QHash<QLocalSocket *, DecoderPtr> m_clients;
    QHash<QString, Handler> m_handlers;
};

} // namespace services
