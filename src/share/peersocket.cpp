#include "share/peersocket.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QThreadPool>

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

namespace share {

namespace {

constexpr int kDiscardBlock = 65536;
constexpr int kDiscardSliceMs = 50;
/// A client that is only a little slow does not cost a change of slots.
constexpr int kHeldReadMs = 10;
constexpr int kHeldWriteMs = 50;

/// Gives the pool slot of this thread to others for the length of a scope, if few enough do so.
class ReleasedSlot
{
public:
    explicit ReleasedSlot(FileShareServerContext *context)
        : m_context(context)
        , m_given(context->waiters.fetchAndAddOrdered(1) < context->maxWaiters)
    {
        if (m_given)
            QThreadPool::globalInstance()->releaseThread();
        else
            m_context->waiters.deref();
    }
    ~ReleasedSlot()
    {
        if (!m_given)
            return;
        QThreadPool::globalInstance()->reserveThread();
        m_context->waiters.deref();
    }
    ReleasedSlot(const ReleasedSlot &) = delete;
    ReleasedSlot &operator=(const ReleasedSlot &) = delete;

    bool isGiven() const { return m_given; }

private:
    FileShareServerContext *m_context;
    bool m_given;
};

int remainingMs(int timeoutMs, const QElapsedTimer &clock)
{
    if (timeoutMs < 0)
        return -1;
    return static_cast<int>(qMax<qint64>(0, timeoutMs - clock.elapsed()));
}

/// Keeps the signal of a broken connection from ending the program for the length of a scope: there
/// is no flag against it in sendfile(2). The signal only ever goes to the thread that writes.
class BrokenPipeBlocker
{
public:
    BrokenPipeBlocker()
    {
        sigset_t pending;
        sigemptyset(&m_signal);
        sigaddset(&m_signal, SIGPIPE);
        ::sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        ::pthread_sigmask(SIG_BLOCK, &m_signal, &m_before);
    }
    ~BrokenPipeBlocker()
    {
        const timespec now = {};
        while (!m_wasPending && ::sigtimedwait(&m_signal, nullptr, &now) < 0 && errno == EINTR) {
        }
        ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    BrokenPipeBlocker(const BrokenPipeBlocker &) = delete;
    BrokenPipeBlocker &operator=(const BrokenPipeBlocker &) = delete;

private:
    sigset_t m_signal;
    sigset_t m_before;
    bool m_wasPending;
};

/// What sendfile(2) says of a file whose file system does not take part.
bool isUnsupported()
{
    return errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP;
}

bool wouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

} // namespace

PeerSocket::PeerSocket(const ShareContextPtr &context)
    : m_context(context)
{}

bool PeerSocket::adopt(qintptr descriptor)
{
    if (!m_socket.setSocketDescriptor(descriptor, QAbstractSocket::ConnectedState,
                                      QIODevice::ReadWrite)) {
        ::close(static_cast<int>(descriptor));
        return false;
    }
    m_descriptor = static_cast<int>(descriptor);
    return true;
}

QString PeerSocket::peerAddress() const
{
    const QHostAddress address = m_socket.peerAddress();
    bool isIpv4 = false;
    const quint32 ipv4 = address.toIPv4Address(&isIpv4);
    return isIpv4 ? QHostAddress(ipv4).toString() : address.toString();
}

PeerSocket::Outcome PeerSocket::read(char *buffer, int size, int timeoutMs, Waiting waiting,
                                     int *count)
{
    QElapsedTimer clock;
    clock.start();
    *count = 0;
    for (;;) {
        const ssize_t got = ::recv(m_descriptor, buffer, static_cast<size_t>(size), MSG_DONTWAIT);
        if (got > 0) {
            *count = static_cast<int>(got);
            m_received += got;
            return Outcome::Done;
        }
        if (got == 0)
            return Outcome::Closed;
        if (errno == EINTR)
            continue;
        if (!wouldBlock())
            return Outcome::Closed;
        const Outcome outcome = waitFor(POLLIN, remainingMs(timeoutMs, clock), waiting);
        if (outcome != Outcome::Done)
            return outcome;
    }
}

PeerSocket::Outcome PeerSocket::write(const char *data, qint64 size, int stallMs, Waiting waiting,
                                      bool more)
{
    const int flags = MSG_DONTWAIT | MSG_NOSIGNAL | (more ? MSG_MORE : 0);
    while (size > 0) {
        const ssize_t sent = ::send(m_descriptor, data, static_cast<size_t>(size), flags);
        if (sent >= 0) {
            data += sent;
            size -= sent;
            continue;
        }
        if (errno == EINTR)
            continue;
        if (!wouldBlock())
            return Outcome::Closed;
        const Outcome outcome = waitFor(POLLOUT, stallMs, waiting);
        if (outcome != Outcome::Done)
            return outcome;
    }
    return Outcome::Done;
}

PeerSocket::Outcome PeerSocket::sendFile(int file, qint64 most, int stallMs, Waiting waiting,
                                         qint64 *sent)
{
    *sent = 0;
    for (;;) {
        ssize_t got = -1;
        int error = 0;
        {
            const BrokenPipeBlocker blocker;
            got = ::sendfile(m_descriptor, file, nullptr, static_cast<size_t>(most));
            error = errno;
        }
        errno = error;
        if (got >= 0) {
            *sent = got;
            return Outcome::Done;
        }
        if (errno == EINTR)
            continue;
        if (!wouldBlock())
            return isUnsupported() ? Outcome::Unsupported : Outcome::Closed;
        const Outcome outcome = waitFor(POLLOUT, stallMs, waiting);
        if (outcome != Outcome::Done)
            return outcome;
    }
}

bool PeerSocket::writeResponse(const QByteArray &data)
{
    return write(data.constData(), data.size(), m_context->limits.responseWriteMs,
                 Waiting::Plain) == Outcome::Done;
}

PeerSocket::Outcome PeerSocket::waitFor(short events, int timeoutMs, Waiting waiting)
{
    QElapsedTimer clock;
    clock.start();
    const bool stoppable = waiting != Waiting::Plain;
    // A header that comes in drops must not keep the slot between them.
    const bool isDripping = waiting == Waiting::FirstHeader && m_received > 0;
    const int held = events == POLLOUT ? kHeldWriteMs : isDripping ? 0 : kHeldReadMs;
    const int heldMs = timeoutMs < 0 ? held : qMin(held, timeoutMs);
    const Outcome soon = pollOnce(events, heldMs, stoppable);
    if (soon != Outcome::TimedOut || heldMs == timeoutMs)
        return soon;
    const ReleasedSlot slot(m_context.data());
    const int left = remainingMs(timeoutMs, clock);
    if (slot.isGiven() || waiting == Waiting::Plain)
        return pollOnce(events, left, stoppable);
    if (waiting == Waiting::FirstHeader)
        return Outcome::Refused;
    // A request under way may be only a little slow, but must not keep the slot from others.
    const int most = m_context->limits.crowdedWaitMs;
    const bool isCut = left < 0 || left > most;
    const Outcome late = pollOnce(events, isCut ? most : left, stoppable);
    return isCut && late == Outcome::TimedOut ? Outcome::Refused : late;
}

PeerSocket::Outcome PeerSocket::pollOnce(short events, int timeoutMs, bool stoppable)
{
    QElapsedTimer clock;
    clock.start();
    pollfd watched[] = {{m_descriptor, events, 0}, {m_context->shutdownEvent, POLLIN, 0}};
    for (;;) {
        const int ready = ::poll(watched, stoppable ? 2 : 1, remainingMs(timeoutMs, clock));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready < 0)
            return Outcome::Closed;
        if (ready == 0)
            return Outcome::TimedOut;
        if (stoppable && m_context->isShuttingDown())
            return Outcome::Stopped;
        if (watched[0].revents != 0)
            return Outcome::Done; // an error shows at the next read or write
        // The event of a shutdown that was called off meanwhile.
    }
}

void PeerSocket::finish(bool requestUnread)
{
    if (m_descriptor < 0)
        return;
    char byte = 0;
    if (requestUnread || ::recv(m_descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0)
        discardIncoming();
    // Nothing of ours is buffered, so this closes the descriptor at once.
    m_socket.abort();
    m_descriptor = -1;
}

void PeerSocket::discardIncoming()
{
    ::shutdown(m_descriptor, SHUT_WR);
    const ShareTimeLimits &limits = m_context->limits;
    QElapsedTimer clock;
    clock.start();
    char block[kDiscardBlock];
    for (;;) {
        const int limit =
            m_context->isShuttingDown() ? limits.stoppedDisconnectMs : limits.disconnectMs;
        const int left = remainingMs(limit, clock);
        if (left == 0)
            return;
        int count = 0;
        const Outcome outcome =
            read(block, kDiscardBlock, qMin(left, kDiscardSliceMs), Waiting::Plain, &count);
        if (outcome != Outcome::Done && outcome != Outcome::TimedOut)
            return;
    }
}

} // namespace share
