#include "support/fakeservice.h"

#include <QTest>
#include <QUuid>

namespace testsupport {

using services::Reply;

FakeService::FakeService(QObject *parent)
    : ServiceHost(parent)
    , m_name(QStringLiteral("fake-") + QUuid::createUuid().toString(QUuid::Id128).left(12))
{
    connect(this, &ServiceHost::requestReceived, this,
            [this](const QString &method, const QJsonObject &params, const QString &requestId) {
                m_requests.append({method, params, requestId});
            });
}

bool FakeService::start()
{
    QString error;
    const bool ok = listen(m_name, &error);
    if (!ok)
        qWarning() << "[FakeService]" << error;
    return ok;
}

void FakeService::reply(const QString &method, const QJsonObject &data)
{
    Script &entry = script(method);
    entry.standing = Reply::ok(data);
    entry.isHeld = false;
}

void FakeService::fail(const QString &method, int code, const QString &message)
{
    Script &entry = script(method);
    entry.standing = Reply::failure(code, message);
    entry.isHeld = false;
}

void FakeService::replyOnce(const QString &method, const Reply &reply)
{
    script(method).once.append(reply);
}

void FakeService::hold(const QString &method)
{
    script(method).isHeld = true;
}

bool FakeService::release(const QString &method, const Reply &reply)
{
    QVector<Respond> &waiting = script(method).waiting;
    if (waiting.isEmpty())
        return false;
    waiting.takeFirst()(reply);
    return true;
}

QStringList FakeService::methods() const
{
    QStringList names;
    for (const Request &request : m_requests)
        names.append(request.method);
    return names;
}

QJsonObject FakeService::lastParams(const QString &method) const
{
    const int last = methods().lastIndexOf(method);
    return last < 0 ? QJsonObject() : m_requests.at(last).params;
}

bool FakeService::waitForRequest(const QString &method, int wanted, int timeoutMs)
{
    return QTest::qWaitFor([&] { return count(method) >= wanted; }, timeoutMs);
}

void FakeService::writeRaw(const QByteArray &bytes)
{
    const QList<QLocalSocket *> sockets = clientSockets();
    for (QLocalSocket *socket : sockets) {
        socket->write(bytes);
        socket->flush();
    }
}

void FakeService::goDeaf()
{
    const QList<QLocalSocket *> sockets = clientSockets();
    for (QLocalSocket *socket : sockets) {
        disconnect(socket, &QLocalSocket::readyRead, this, nullptr);
        socket->setReadBufferSize(1); // Else the socket would take in everything on its own.
    }
}

FakeService::Script &FakeService::script(const QString &method)
{
    auto it = m_scripts.find(method);
    if (it == m_scripts.end()) {
        it = m_scripts.insert(method, Script());
        it->standing = Reply::failure(kUnknownMethodCode, QStringLiteral("no script: ") + method);
        handle(method, Handler([this, method](const QJsonObject &, const Respond &respond) {
                   answer(method, respond);
               }));
    }
    return it.value();
}

void FakeService::answer(const QString &method, const Respond &respond)
{
    Script &entry = script(method);
    if (!entry.once.isEmpty())
        respond(entry.once.takeFirst());
    else if (entry.isHeld)
        entry.waiting.append(respond);
    else
        respond(entry.standing);
}

} // namespace testsupport
