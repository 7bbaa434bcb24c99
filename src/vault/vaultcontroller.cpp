#include "vault/vaultcontroller.h"

#include "core/ipc/ipcclient.h"

using core::ipc::IpcClient;

VaultController::VaultController(IpcClient *client, QObject *parent)
    : QObject(parent)
    , m_client(client)
{
    if (!m_client)
        return;
    connect(m_client, &IpcClient::connected, this, [this] { emit connectionChanged(true); });
    connect(m_client, &IpcClient::disconnected, this, [this] { emit connectionChanged(false); });
}

bool VaultController::isConnected() const
{
    return m_client && m_client->isConnected();
}

void VaultController::connectToVaultDaemon()
{
    if (m_client)
        m_client->connectToService();
}

void VaultController::refreshStatus()
{
    request(QStringLiteral("getStatus"), QJsonObject(),
            [this](const QJsonObject &status) { emit statusUpdated(status); });
}

void VaultController::request(const QString &operation, const QJsonObject &params,
                              const std::function<void(const QJsonObject &)> &onOk)
{
    if (!m_client) {
        emit operationError(operation, QStringLiteral("IPC 客户端不可用"));
        return;
    }
    // The client may outlive the controller and answer later.
    const QPointer<VaultController> self(this);
    m_client->sendRequest(
        QStringLiteral("vault.") + operation, params,
        [self, operation, onOk](bool ok, const QJsonObject &result, const QJsonObject &error) {
            if (!self)
                return;
            if (ok)
                onOk(result);
            else
                emit self->operationError(operation,
                                          error.value(QLatin1String("message")).toString());
        });
}
