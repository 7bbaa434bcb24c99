#pragma once

#include <QJsonObject>
#include <QObject>

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

    bool isConnected() const;
    void connectToVaultDaemon();

    /// Asks for the service's status; ends in statusUpdated() or operationError("getStatus", …).
    void refreshStatus();

signals:
    void statusUpdated(const QJsonObject &status);
    void operationError(const QString &operation, const QString &message);
    void connectionChanged(bool connected);

private:
    core::ipc::IpcClient *m_client;
};
