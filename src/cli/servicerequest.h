#pragma once

#include "core/ipc/ipcclient.h"

#include <QJsonObject>
#include <QString>

namespace cli {

/// A client of one service that waits for each answer in an event loop.
class ServiceRequest
{
public:
    explicit ServiceRequest(const QString &serviceName);

    core::ipc::IpcClient *client() { return &m_client; }
    /// False with the service's reason, or why it could not be asked. Waits as long as it takes.
    [[nodiscard]] bool ask(const QString &method, const QJsonObject &params, QJsonObject *answer,
                           QString *error);

private:
    core::ipc::IpcClient m_client;
};

} // namespace cli
