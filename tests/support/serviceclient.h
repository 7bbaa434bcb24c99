#pragma once

#include "core/ipc/ipcclient.h"

#include <QJsonArray>
#include <QVector>

namespace testsupport {

/// A client of a service that waits for answers and keeps all events.
class ServiceClient
{
public:
    struct Answer
    {
        bool success = false;
        QJsonObject data;
        int errorCode = 0;
        QString errorMessage;
    };
    struct Event
    {
        QString name;
        QJsonObject data;
    };

    explicit ServiceClient(const QString &socketName);

    [[nodiscard]] bool connectNow() { return m_client.ensureConnected(3000); }
    bool isConnected() const { return m_client.isConnected(); }
    /// Runs the event loop until the answer is there; without one within 20 s it is a failure with
    /// code 0.
    Answer request(const QString &method, const QJsonObject &params = QJsonObject());
    const QVector<Event> &events() const { return m_events; }

protected:
    core::ipc::IpcClient m_client;
    QVector<Event> m_events;
};

} // namespace testsupport
