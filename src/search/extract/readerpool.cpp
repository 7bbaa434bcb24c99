#include "search/extract/readerpool.h"

#include "search/extract/toolrunner.h"
#include "search/text/extractprotocol.h"

#include <QElapsedTimer>
#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace search {

namespace {

using text::ExtractReply;
using text::ExtractRequest;

constexpr int pollMs = 50;
/// A little longer than the helper gives itself.
constexpr int answerMs = (text::documentSeconds + 5) * 1000;
/// What readers leave behind in memory goes with the helper.
constexpr int documentsPerHelper = 1000;
constexpr int maxUtf8PerChar = 3;
/// A helper that had ended before it was asked is noticed at once.
constexpr int quickFailureMs = 500;

void endHelper(pid_t pid, int socket)
{
    ::close(socket);
    ::kill(pid, SIGKILL);
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

/// One exchange with a helper, bounded in time.
class Exchange
{
public:
    Exchange(int socket, const std::atomic_bool *cancel)
        : m_socket(socket)
        , m_cancel(cancel)
    {
        m_clock.start();
    }

    bool send(const void *from, size_t bytes)
    {
        const auto *at = static_cast<const char *>(from);
        while (bytes > 0) {
            const ssize_t sent = ::send(m_socket, at, bytes, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent > 0) {
                at += sent;
                bytes -= size_t(sent);
            } else if (!mayRetry(sent, POLLOUT)) {
                return false;
            }
        }
        return true;
    }

    bool receive(void *to, size_t bytes)
    {
        auto *at = static_cast<char *>(to);
        while (bytes > 0) {
            const ssize_t got = ::recv(m_socket, at, bytes, MSG_DONTWAIT);
            if (got > 0) {
                at += got;
                bytes -= size_t(got);
            } else if (got == 0 || !mayRetry(got, POLLIN)) {
                return false;
            }
        }
        return true;
    }

private:
    /// Waits for the socket after a call that would have blocked.
    bool mayRetry(ssize_t result, short events)
    {
        if (result < 0 && errno == EINTR)
            return true;
        if (result < 0 && errno != EAGAIN && errno != EWOULDBLOCK)
            return false;
        while (!isCancelled(m_cancel) && m_clock.elapsed() < answerMs) {
            pollfd waited{m_socket, events, 0};
            if (::poll(&waited, 1, pollMs) > 0)
                return true;
        }
        return false;
    }

    const int m_socket;
    const std::atomic_bool *const m_cancel;
    QElapsedTimer m_clock;
};

bool ask(int socket, const QByteArray &path, const ReaderLimits &limits,
         const std::atomic_bool *cancel, ReaderAnswer *answer)
{
    Exchange exchange(socket, cancel);
    const ExtractRequest request{uint32_t(path.size()), uint32_t(qMax(0, limits.maxPlainBytes)),
                                 uint32_t(qMax(0, limits.maxChars))};
    ExtractReply reply{};
    if (!exchange.send(&request, sizeof(request)) ||
        !exchange.send(path.constData(), size_t(path.size())) ||
        !exchange.receive(&reply, sizeof(reply)))
        return false;
    // A helper that a document has taken over could claim anything.
    if (reply.textBytes > qint64(request.maxChars) * maxUtf8PerChar)
        return false;
    QByteArray bytes(int(reply.textBytes), Qt::Uninitialized);
    if (!exchange.receive(bytes.data(), reply.textBytes))
        return false;
    answer->answered = true;
    answer->text = QString::fromUtf8(bytes);
    answer->isCut = reply.isCut != 0;
    return true;
}

} // namespace

ReaderPool::ReaderPool(const QString &program)
    : m_program(QFile::encodeName(program))
{}

ReaderPool::~ReaderPool()
{
    for (const Helper &helper : m_idle)
        endHelper(helper.pid, helper.socket);
}

ReaderPool &ReaderPool::shared()
{
    static ReaderPool pool(
        ToolRunner::shared().resolveToolExecutable(QStringLiteral("morvane-extract")));
    return pool;
}

bool ReaderPool::takeIdle(Helper *helper)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_idle.empty())
        return false;
    *helper = m_idle.back();
    m_idle.pop_back();
    return true;
}

bool ReaderPool::start(Helper *helper) const
{
    int sockets[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0)
        return false;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, sockets[1], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, sockets[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    QByteArray program = m_program;
    QByteArray mode("--serve");
    char *arguments[] = {program.data(), mode.data(), nullptr};
    const int failure =
        ::posix_spawn(&helper->pid, m_program.constData(), &files, &attributes, arguments, environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    ::close(sockets[1]);
    if (failure != 0) {
        ::close(sockets[0]);
        return false;
    }
    helper->socket = sockets[0];
    helper->documents = 0;
    return true;
}

void ReaderPool::giveBack(const Helper &helper)
{
    if (helper.documents >= documentsPerHelper) {
        endHelper(helper.pid, helper.socket);
        return;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_idle.push_back(helper);
}

ReaderAnswer ReaderPool::read(const QString &path, const ReaderLimits &limits,
                              const std::atomic_bool *cancel)
{
    ReaderAnswer answer;
    const QByteArray name = QFile::encodeName(path);
    if (m_program.isEmpty() || uint32_t(name.size()) > text::maxPathBytes)
        return answer;
    // An idle helper may have ended meanwhile: only a new one's silence, or one after a while, says
    // something about the document.
    QElapsedTimer clock;
    clock.start();
    for (bool isNew = false; !isNew && clock.elapsed() < quickFailureMs && !isCancelled(cancel);) {
        Helper helper{};
        isNew = !takeIdle(&helper);
        if (isNew && !start(&helper))
            return answer;
        ++helper.documents;
        if (ask(helper.socket, name, limits, cancel, &answer)) {
            giveBack(helper);
            return answer;
        }
        endHelper(helper.pid, helper.socket);
    }
    return answer;
}

} // namespace search
