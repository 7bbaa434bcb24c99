#include "core/controllers/servicecontroller.h"

#include "core/ipc/ipcclient.h"

#include <QDebug>

namespace core {
namespace controllers {

namespace {
constexpr int kStoppedByRequest = 1002; // the service's `error.code`
} // namespace

ServiceController::ServiceController(ipc::IpcClient *client, QObject *parent)
    : QObject(parent)
    , m_client(client)
{}

bool ServiceController::request(const QString &method, const QJsonObject &params,
                                const Answer &answer)
{
    if (!m_client)
        return false;
    // The client may outlive the controller and answer later.
    const QPointer<ServiceController> self(this);
    m_client->sendRequest(
        method, params,
        [self, answer](bool success, const QJsonObject &data, const QJsonObject &error) {
            if (self)
                answer(success, data, success ? QString() : messageOf(error, QString()));
        });
    return true;
}

void ServiceController::query(const QString &method, const QJsonObject &params, const QString &id,
                              const std::function<void(const QJsonObject &)> &received)
{
    request(method, params,
            [this, method, id, received](bool success, const QJsonObject &data,
                                         const QString &message) {
                if (success) {
                    received(data);
                    return;
                }
                qWarning() << "[ServiceController] query failed:" << method << id << message;
                emit queryFailed(method, id, message);
            });
}

QString ServiceController::noClientMessage()
{
    return QStringLiteral("IPC 客户端不可用");
}

bool ServiceController::isRequestedStop(const QJsonObject &error)
{
    return error.value(QLatin1String("code")).toInt() == kStoppedByRequest;
}

QString ServiceController::messageOf(const QJsonObject &error, const QString &fallback)
{
    return orElse(error.value(QLatin1String("message")).toString(), fallback);
}

QString ServiceController::orElse(const QString &message, const QString &fallback)
{
    return message.isEmpty() ? fallback : message;
}

} // namespace controllers
} // namespace core
