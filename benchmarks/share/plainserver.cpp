#include "share/plainserver.h"

#include "share/filesharedb.h"
#include "share/fileshareserver.h"

#include <QCoreApplication>
#include <QFile>

#include <arpa/inet.h>
#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int kBlock = 65536;
constexpr int kBacklog = 50;

void sayPort(int port)
{
    std::printf("%d\n", port);
    std::fflush(stdout);
}

void sendAll(int peer, const char *data, ssize_t size)
{
    while (size > 0) {
        const ssize_t sent = ::send(peer, data, size_t(size), MSG_NOSIGNAL);
        if (sent < 0)
            return;
        data += sent;
        size -= sent;
    }
}

void sendFile(int peer, const QByteArray &path)
{
    const int file = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    ::fstat(file, &status);
    const QByteArray head = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " +
                            QByteArray::number(qlonglong(status.st_size)) + "\r\n\r\n";
    sendAll(peer, head.constData(), head.size());
    char block[kBlock];
    for (;;) {
        const ssize_t got = ::read(file, block, kBlock);
        if (got < 1)
            break;
        sendAll(peer, block, got);
    }
    ::close(file);
}

void receiveFile(int peer, const QByteArray &path, const QByteArray &head, int bodyStart)
{
    const int length = head.indexOf("Content-Length: ") + 16;
    qint64 left = head.mid(length, head.indexOf("\r\n", length) - length).toLongLong();
    const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    left -= ::write(file, head.constData() + bodyStart, size_t(head.size() - bodyStart));
    char block[kBlock];
    while (left > 0) {
        const ssize_t got = ::recv(peer, block, kBlock, 0);
        if (got < 1 || ::write(file, block, size_t(got)) != got)
            break;
        left -= got;
    }
    ::fdatasync(file); // as whoever does not want to lose it
    ::close(file);
    const char answer[] = "HTTP/1.1 201 Created\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
    sendAll(peer, answer, sizeof answer - 1);
}

void serveOne(int peer, const QByteArray &directory)
{
    QByteArray head;
    char block[kBlock];
    while (!head.contains("\r\n\r\n")) {
        const ssize_t got = ::recv(peer, block, kBlock, 0);
        if (got < 1)
            break;
        head.append(block, int(got));
    }
    const QByteArray target = directory + head.split(' ').value(1);
    const int bodyStart = head.indexOf("\r\n\r\n") + 4;
    if (head.startsWith("GET "))
        sendFile(peer, target);
    else if (head.startsWith("PUT "))
        receiveFile(peer, target, head, bodyStart);
    ::close(peer);
}

} // namespace

int runPlainServer(const QString &directory)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    if (::bind(listener, generic, size) != 0 || ::listen(listener, kBacklog) != 0 ||
        ::getsockname(listener, generic, &size) != 0)
        return 1;
    sayPort(ntohs(address.sin_port));
    const QByteArray root = QFile::encodeName(directory);
    for (;;) {
        const int peer = ::accept(listener, nullptr, nullptr);
        if (peer >= 0)
            std::thread(serveOne, peer, root).detach();
    }
}

int runShareServer(const QString &directory, const QString &dbPath)
{
    FileShareDb db(dbPath);
    ShareSession session;
    session.id = QStringLiteral("s");
    session.status = QStringLiteral("active");
    session.accessMode = QStringLiteral("upload");
    ShareRoot root;
    root.id = QStringLiteral("r");
    root.sessionId = session.id;
    root.localPath = directory;
    root.displayName = QStringLiteral("r");
    FileShareServer server(&db, nullptr);
    if (!db.open() || !db.createSession(session, QString()) || !db.addRoot(root) ||
        !server.startListening(0))
        return 1;
    server.addActiveSession(session.id);
    sayPort(server.serverPort());
    return QCoreApplication::exec();
}
