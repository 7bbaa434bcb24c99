#pragma once

#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>

class QLocalServer;
class QLocalSocket;

namespace core {
namespace ipc {
class FrameDecoder;
}
} // namespace core

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
/// calls the method's handler and sends its reply; events go to every client. A client that sends
/// a wrong magic is dropped. One thread, event-driven.
class ServiceHost : public QObject
{
    Q_OBJECT

public:
    /// `respond` may be called now or later, once; it does nothing when the client has gone.
    using Respond = std::function<void(const Reply &)>;
    using Handler = std::function<void(const QJsonObject &params, const Respond &respond)>;

    explicit ServiceHost(QObject *parent = nullptr);
    ~ServiceHost() override;

    /// Listens under `serviceName`, taking over a leftover socket file.
    [[nodiscard]] bool listen(const QString &serviceName, QString *error = nullptr);
    /// Drops all clients and stops listening.
    void close();

    /// Handler for one method. A request for an unknown method is answered with code 404.
    void handle(const QString &method, Handler handler);
    /// Shorthand for a handler that answers at once.
    void handle(const QString &method, std::function<Reply(const QJsonObject &)> handler);

    /// Sends an event to every connected client.
    void broadcast(const QString &event, const QJsonObject &data);
    int clientCount() const;

signals:
    void clientConnected();
    void clientDisconnected();
    /// Every request as it arrives, before its handler runs.
    void requestReceived(const QString &method, const QJsonObject &params);

private:
    struct Client;

    void acceptClients();
    void readFrom(QLocalSocket *socket);
    void processFrame(QLocalSocket *socket, const QByteArray &body);

    QLocalServer *m_server = nullptr;
    QHash<QLocalSocket *, core::ipc::FrameDecoder *> m_clients;
    QHash<QString, Handler> m_handlers;
};

} // namespace services
