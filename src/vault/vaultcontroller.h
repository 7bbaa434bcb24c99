#pragma once

#include <QJsonObject>
#include <QObject>
#include <QPointer>

#include <functional>

namespace core {
namespace ipc {
class IpcClient;
}
} // namespace core

/// The program's front for the vault service: one method a request, one signal a result. Stateless;
/// lives on the GUI thread with its client, which it does not own.
class VaultController : public QObject
{
    Q_OBJECT

public:
    explicit VaultController(core::ipc::IpcClient *client, QObject *parent = nullptr);

    /// False without a client, too.
    bool isConnected() const;
    /// Starts connecting; does nothing without a client. Does not block.
    void connectToVaultDaemon();

    /// Asks for the service's status; ends in statusUpdated() or operationError("getStatus", …).
    void refreshStatus();

signals:
    void statusUpdated(const QJsonObject &status);
    void operationError(const QString &operation, const QString &message);
    void connectionChanged(bool connected);

private:
    /// Sends "vault." + `operation`; a failure ends in operationError() under the same word.
    void request(const QString &operation, const QJsonObject &params,
                 const std::function<void(const QJsonObject &)> &onOk);

    QPointer<core::ipc::IpcClient> m_client;
};
