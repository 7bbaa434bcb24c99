#pragma once

#include <QJsonObject>
#include <QObject>
#include <QPointer>

#include <functional>

namespace core {
namespace ipc {
class IpcClient;
}
namespace controllers {

/// What the controllers on one service link share: sending a request whose answer becomes a signal,
/// and the words for what went wrong. Lives on the GUI thread with its client, which it does not
/// own and may outlive.
class ServiceController : public QObject
{
    Q_OBJECT

public:
    explicit ServiceController(ipc::IpcClient *client, QObject *parent = nullptr);

signals:
    /// A query failed: its wire name, the id that was asked for (empty if none) and the service's
    /// or the link's words.
    void queryFailed(const QString &method, const QString &id, const QString &message);

protected:
    /// `message` is the service's own text and empty on success.
    using Answer =
        std::function<void(bool success, const QJsonObject &data, const QString &message)>;

    /// Sends the request; the answer arrives only while this controller lives. False, with nothing
    /// sent and nothing called, if there is no client.
    bool request(const QString &method, const QJsonObject &params, const Answer &answer);

    /// A request that only asks: success ends in `received`, failure in queryFailed(). Does nothing
    /// without a client.
    void query(const QString &method, const QJsonObject &params, const QString &id,
               const std::function<void(const QJsonObject &data)> &received);

    /// What is reported where there is no client.
    static QString noClientMessage();
    /// An error that only says that the work was stopped by request; users see no error then.
    static bool isRequestedStop(const QJsonObject &error);
    /// The error's own text, or `fallback` where it has none.
    static QString messageOf(const QJsonObject &error, const QString &fallback);
    static QString orElse(const QString &message, const QString &fallback);

private:
    QPointer<ipc::IpcClient> m_client;
};

} // namespace controllers
} // namespace core
