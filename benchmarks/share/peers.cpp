#include "share/peers.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QTcpServer>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kBuffer = 1 << 20;
constexpr int kStartMs = 10000;

int connectTo(int port)
{
    const int peer = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(quint16(port));
    if (::connect(peer, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return peer;
    ::close(peer);
    return -1;
}

void sendAll(int peer, const QByteArray &data)
{
    for (int done = 0; done < data.size();) {
        const ssize_t sent =
            ::send(peer, data.constData() + done, size_t(data.size() - done), MSG_NOSIGNAL);
        if (sent < 0)
            return;
        done += int(sent);
    }
}

} // namespace

std::unique_ptr<ServerProcess> ServerProcess::own(const QStringList &arguments)
{
    std::unique_ptr<ServerProcess> server(new ServerProcess);
    server->m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server->m_process.start(QCoreApplication::applicationFilePath(), arguments);
    while (!server->m_process.canReadLine()) {
        if (!server->m_process.waitForReadyRead(kStartMs))
            qFatal("%s does not start", qPrintable(arguments.first()));
    }
    server->m_port = server->m_process.readLine().trimmed().toInt();
    return server;
}

std::unique_ptr<ServerProcess> ServerProcess::foreign(const QString &program,
                                                      const QStringList &arguments, int port)
{
    std::unique_ptr<ServerProcess> server(new ServerProcess);
    server->m_process.setStandardOutputFile(QProcess::nullDevice());
    server->m_process.setStandardErrorFile(QProcess::nullDevice());
    server->m_process.start(program, arguments);
    server->m_port = port;
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        const int peer = connectTo(port);
        if (peer >= 0) {
            ::close(peer);
            return server;
        }
        if (clock.elapsed() > kStartMs)
            qFatal("%s does not start", qPrintable(program));
        ::usleep(20000);
    }
}

ServerProcess::~ServerProcess()
{
    m_process.terminate();
    if (!m_process.waitForFinished(kStartMs))
        m_process.kill();
    m_process.waitForFinished();
}

qint64 ServerProcess::residentKiB() const
{
    QFile file(QStringLiteral("/proc/%1/status").arg(m_process.processId()));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = file.readAll();
    const int at = text.indexOf("VmRSS:") + 6;
    return text.mid(at, text.indexOf(" kB", at) - at).trimmed().toLongLong();
}

int unusedPort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost) ? probe.serverPort() : 0;
}

double timedRequest(int port, const QByteArray &head, qint64 leastBytes, const QByteArray &body,
                    int bodyTimes)
{
    std::vector<char> buffer(kBuffer);
    QElapsedTimer clock;
    clock.start();
    const int peer = connectTo(port);
    sendAll(peer, head);
    for (int i = 0; i < bodyTimes; ++i)
        sendAll(peer, body);
    qint64 total = 0;
    for (;;) {
        const ssize_t got = ::recv(peer, buffer.data(), buffer.size(), 0);
        if (got < 1)
            break;
        if (total == 0 && QByteArray(buffer.data(), int(qMin<ssize_t>(got, 12))).mid(9, 1) != "2")
            qFatal("refused: %.200s", buffer.data());
        total += got;
    }
    ::close(peer);
    if (total < leastBytes)
        qFatal("%lld bytes of %lld came from port %d", total, leastBytes, port);
    return double(clock.nsecsElapsed()) / 1e9;
}

double timedRequests(int clients, int port, const QByteArray &head, qint64 leastBytes)
{
    QElapsedTimer clock;
    clock.start();
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i)
        threads.emplace_back([&] { timedRequest(port, head, leastBytes); });
    for (std::thread &thread : threads)
        thread.join();
    return double(clock.nsecsElapsed()) / 1e9;
}
