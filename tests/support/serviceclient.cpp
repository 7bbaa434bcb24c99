#include "support/serviceclient.h"

#include <QTest>

namespace testsupport {

ServiceClient::ServiceClient(const QString &socketName)
    : m_client(socketName)
{
    QObject::connect(&m_client, &core::ipc::IpcClient::eventReceived, &m_client,
                     [this](const QString &name, const QJsonObject &data) {
                         m_events.append({name, data});
                     });
}

ServiceClient::Answer ServiceClient::request(const QString &method, const QJsonObject &params)
{
    const auto answer = std::make_shared<Answer>();
    const auto isThere = std::make_shared<bool>(false);
    m_client.sendRequest(
        method, params,
        [answer, isThere](bool success, const QJsonObject &data, const QJsonObject &error) {
            *answer = {success, data, error.value(QLatin1String("code")).toInt(),
                       error.value(QLatin1String("message")).toString()};
            *isThere = true;
        });
    return QTest::qWaitFor([isThere] { return *isThere; }, 20000) ? *answer : Answer();
}

} // namespace testsupport
