#include "cli/servicerequest.h"

#include <QEventLoop>

namespace cli {
namespace {

constexpr int connectMs = 5000;

} // namespace

ServiceRequest::ServiceRequest(const QString &serviceName)
    : m_client(serviceName)
{}

bool ServiceRequest::ask(const QString &method, const QJsonObject &params, QJsonObject *answer,
                         QString *error)
{
    if (!m_client.ensureConnected(connectMs)) {
        *error = m_client.refusal().isEmpty() ? QStringLiteral("服务没有运行") : m_client.refusal();
        return false;
    }
    QEventLoop loop;
    bool done = false;
    bool ok = false;
    m_client.sendRequest(method, params,
                         [&](bool success, const QJsonObject &data, const QJsonObject &failure) {
                             ok = success;
                             *answer = data;
                             *error = failure.value(QLatin1String("message")).toString();
                             done = true;
                             loop.quit();
                         });
    if (!done)
        loop.exec();
    return ok;
}

} // namespace cli
