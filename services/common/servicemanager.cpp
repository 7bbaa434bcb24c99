#include "common/servicemanager.h"

#include <QDebug>
#include <QTimer>

#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace services {

namespace {

constexpr int kFirstActivationDescriptor = 3;

bool isForThisProcess(const char *pidVariable)
{
    return qgetenv(pidVariable) == QByteArray::number(qint64(::getpid()));
}

} // namespace

int takeActivationSocket()
{
    const bool isOurs = isForThisProcess("LISTEN_PID");
    const int count = qEnvironmentVariableIntValue("LISTEN_FDS");
    for (const char *name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
        qunsetenv(name);
    if (!isOurs || count < 1)
        return -1;
    if (count > 1)
        qWarning() << "[ServiceManager] only the first of" << count << "sockets is used";
    const int flags = ::fcntl(kFirstActivationDescriptor, F_GETFD);
    const int status = ::fcntl(kFirstActivationDescriptor, F_GETFL);
    if (flags < 0 || status < 0 ||
        ::fcntl(kFirstActivationDescriptor, F_SETFD, flags | FD_CLOEXEC) != 0 ||
        ::fcntl(kFirstActivationDescriptor, F_SETFL, status | O_NONBLOCK) != 0) {
        qWarning() << "[ServiceManager] the activation socket cannot be used:" << strerror(errno);
        return -1;
    }
    return kFirstActivationDescriptor;
}

bool notifyServiceManager(const QByteArray &state)
{
    const QByteArray path = qgetenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (path.size() < 2 || path.size() >= int(sizeof address.sun_path))
        return false;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
    if (address.sun_path[0] == '@') // an abstract name
        address.sun_path[0] = '\0';
    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return false;
    const auto length = socklen_t(offsetof(sockaddr_un, sun_path) + size_t(path.size()));
    const bool isSent =
        ::sendto(descriptor, state.constData(), size_t(state.size()), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr *>(&address), length) == state.size();
    ::close(descriptor);
    return isSent;
}

void reportReady(QObject *parent)
{
    notifyServiceManager(QByteArrayLiteral("READY=1"));
    const qint64 microseconds = qgetenv("WATCHDOG_USEC").toLongLong();
    const bool isOurs =
        qEnvironmentVariableIsEmpty("WATCHDOG_PID") || isForThisProcess("WATCHDOG_PID");
    if (microseconds <= 0 || !isOurs)
        return;
    auto *const timer = new QTimer(parent);
    QObject::connect(timer, &QTimer::timeout, timer,
                     [] { notifyServiceManager(QByteArrayLiteral("WATCHDOG=1")); });
    timer->start(int(qBound(qint64(1), microseconds / 2000, qint64(3600 * 1000))));
}

} // namespace services
