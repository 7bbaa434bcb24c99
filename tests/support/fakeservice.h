#pragma once

#include "common/servicehost.h"

#include <QVector>

namespace testsupport {

/// A local service for tests, with a name of its own, so that each test can talk to one. It takes
/// notes of every request and answers from a script:
///
///     FakeService service;
///     QVERIFY(service.start());
///     service.reply(QStringLiteral("vault.getStatus"), {{QStringLiteral("running"), true}});
///     core::ipc::IpcClient client(service.name());
///
/// Methods without a script are answered with ServiceHost::kUnknownMethodCode; broadcast() sends
/// events, handle() takes code, dropClients() cuts the connections. Below the protocol, writeRaw()
/// sends any bytes and goDeaf() leaves requests unread.
class FakeService : public services::ServiceHost
{
    Q_OBJECT

public:
    struct Request
    {
        QString method;
        QJsonObject params;
        QString requestId; ///< For answers made by hand with writeRaw().
    };

    explicit FakeService(QObject *parent = nullptr);

    /// Listens under name(); after stop() again under the same name.
    [[nodiscard]] bool start();
    void stop() { close(); }
    QString name() const { return m_name; }

    /// Answers every request of the method, from now on.
    void reply(const QString &method, const QJsonObject &data);
    void fail(const QString &method, int code, const QString &message);
    /// Answers the method's next requests with these replies, one each, then goes on as before.
    void replyOnce(const QString &method, const services::Reply &reply);

    /// Leaves requests of the method unanswered until release().
    void hold(const QString &method);
    int heldCount(const QString &method) const { return m_scripts.value(method).waiting.size(); }
    /// Answers the held request of the method that came first; false if there is none.
    bool release(const QString &method, const services::Reply &reply);

    const QVector<Request> &requests() const { return m_requests; }
    QStringList methods() const;
    int count(const QString &method) const { return methods().count(method); }
    /// The parameters of the method's last request; an empty object if there was none.
    QJsonObject lastParams(const QString &method) const;
    void clearRequests() { m_requests.clear(); }
    /// Runs the event loop until the method has come `count` times in all.
    [[nodiscard]] bool waitForRequest(const QString &method, int count = 1, int timeoutMs = 5000);

    /// Writes bytes as they are to every client.
    void writeRaw(const QByteArray &bytes);
    /// Reads nothing more from the clients it has now, so that their writes pile up.
    void goDeaf();

private:
    struct Script
    {
        QVector<services::Reply> once;
        services::Reply standing;
        bool isHeld = false;
        QVector<Respond> waiting;
    };

    /// The method's script; the first use puts the script in front of the method.
    Script &script(const QString &method);
    void answer(const QString &method, const Respond &respond);

    QString m_name;
    QVector<Request> m_requests;
    QHash<QString, Script> m_scripts;
};

} // namespace testsupport
