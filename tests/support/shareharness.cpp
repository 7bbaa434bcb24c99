#include "support/shareharness.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QHostAddress>
#include <QTimer>

namespace {

constexpr int kConnectMs = 5000;
constexpr int kStepMs = 20;

template <typename Condition>
bool spinUntil(Condition isMet, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!isMet()) {
        if (clock.elapsed() >= timeoutMs)
            return false;
        QEventLoop loop;
        QTimer::singleShot(kStepMs, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

void must(bool done, const char *what)
{
    if (!done)
        qFatal("%s", what);
}

} // namespace

HttpReply HttpReply::parsed(const QByteArray &bytes)
{
    HttpReply reply;
    const int end = bytes.indexOf("\r\n\r\n");
    if (end < 0)
        return reply;
    for (const QByteArray &line : bytes.left(end).split('\n'))
        reply.headerLines.append(line.trimmed());
    reply.statusLine = reply.headerLines.takeFirst();
    reply.status = reply.statusLine.split(' ').value(1).toInt();
    for (const QByteArray &line : qAsConst(reply.headerLines)) {
        const int colon = line.indexOf(": ");
        reply.headers.insert(line.left(colon), line.mid(colon + 2));
    }
    reply.body = bytes.mid(end + 4);
    return reply;
}

ShareClient::ShareClient(int port)
{
    m_socket.connectToHost(QHostAddress(QHostAddress::LocalHost), static_cast<quint16>(port));
    must(m_socket.waitForConnected(kConnectMs), "no connection to the share server");
}

void ShareClient::send(const QByteArray &bytes)
{
    m_socket.write(bytes);
    m_socket.flush();
}

bool ShareClient::waitForBytes(qint64 bytes, int timeoutMs)
{
    return spinUntil([&] { return m_socket.bytesAvailable() >= bytes; }, timeoutMs);
}

bool ShareClient::waitForClose(int timeoutMs)
{
    return spinUntil([&] { return m_socket.state() == QAbstractSocket::UnconnectedState; },
                     timeoutMs);
}

HttpReply ShareClient::reply(int timeoutMs)
{
    waitForClose(timeoutMs);
    return HttpReply::parsed(m_socket.readAll());
}

ShareHarness::ShareHarness()
    : m_db(m_tree.path("share.db"))
{
    must(m_db.open() && m_db.initSchema(), "no share database");
    m_controller.reset(
        new FileShareController(nullptr, m_db.dbPath(), QStringLiteral("no-such-service")));
    m_server.reset(new FileShareServer(&m_db, m_controller.data()));
    must(m_server->startListening(0), "no free port");
}

ShareHarness::~ShareHarness() = default;

ShareSession ShareHarness::session(const QString &id)
{
    ShareSession session;
    session.id = id;
    session.status = QStringLiteral("active");
    session.accessMode = QStringLiteral("download");
    return session;
}

void ShareHarness::add(const ShareSession &session, const QString &password)
{
    must(m_db.createSession(session, FileShareDb::hashPassword(password)), "no session");
    m_server->addActiveSession(session.id);
}

void ShareHarness::setStatus(const QString &sessionId, const QString &status)
{
    must(m_db.updateSessionStatus(sessionId, status), "no such session");
}

void ShareHarness::addRoot(const QString &sessionId, const QString &rootId,
                           const QString &localPath, const QString &displayName)
{
    ShareRoot root;
    root.id = rootId;
    root.sessionId = sessionId;
    root.localPath = localPath;
    root.displayName = displayName.isEmpty() ? rootId : displayName;
    must(m_db.addRoot(root), "no root");
}

HttpReply ShareHarness::request(const QByteArray &bytes) const
{
    ShareClient client(port());
    client.send(bytes);
    return client.reply();
}

HttpReply ShareHarness::get(const QByteArray &target, const QByteArray &headerLines) const
{
    return request("GET " + target + " HTTP/1.1\r\n" + headerLines + "\r\n");
}

QStringList ShareHarness::log(const QString &sessionId) const
{
    QStringList lines;
    const QList<AccessLogEntry> entries = m_db.accessLog(sessionId, QString(), 0, 1000);
    for (const AccessLogEntry &entry : entries)
        lines.prepend(entry.action + QLatin1Char(' ') + entry.filePath);
    return lines;
}
