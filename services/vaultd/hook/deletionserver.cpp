#include "vaultd/hook/deletionserver.h"

#include "vaultd/failure.h"
#include "vaultd/keep/keeper.h"

#include <QDebug>
#include <QFile>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace services::vaultd {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBacklog = 4096;
// Three descriptors each. Beyond that the user's own queue has to wait.
constexpr size_t kMaxConversations = 256;
constexpr std::chrono::milliseconds kRequestWait(2000); ///< Then a silent program is hung up on.
constexpr int kFolderWaitMs = 2; ///< For the next deletion in the same folder.

/// A listening socket that appears with its rights, in place of what is there.
int listenAt(const QByteArray &path, quint32 user)
{
    const QByteArray unfinished = path + ".new";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (unfinished.size() >= int(sizeof address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, unfinished.constData(), size_t(unfinished.size()));
    ::unlink(unfinished.constData());
    core::Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool isEveryone = user == GUARD_ANY_USER;
    const bool isReady =
        socket.isOpen() && ::fchmod(socket.get(), 0600) == 0 &&
        ::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
        (isEveryone
             ? ::chmod(unfinished.constData(), 0666) == 0
             : user == ::geteuid() || ::lchown(unfinished.constData(), user, gid_t(-1)) == 0) &&
        ::listen(socket.get(), kBacklog) == 0 &&
        ::rename(unfinished.constData(), path.constData()) == 0;
    if (isReady)
        return socket.release();
    const int code = errno;
    ::unlink(unfinished.constData());
    errno = code;
    return -1;
}

/// One message and the two descriptors with it; whatever else was sent is closed.
bool receiveRequest(int socket, GuardRequest *request, core::Descriptor *file,
                    core::Descriptor *parent)
{
    union {
        cmsghdr header;
        char space[CMSG_SPACE(2 * sizeof(int))];
    } control = {};
    iovec part = {request, sizeof *request};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = &control;
    message.msg_controllen = sizeof control.space;
    const ssize_t length = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    std::vector<int> descriptors;
    for (cmsghdr *header = CMSG_FIRSTHDR(&message); length >= 0 && header;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
            continue;
        descriptors.resize((header->cmsg_len - CMSG_LEN(0)) / sizeof(int));
        std::memcpy(descriptors.data(), CMSG_DATA(header), descriptors.size() * sizeof(int));
    }
    file->reset(descriptors.empty() ? -1 : descriptors[0]);
    parent->reset(descriptors.size() < 2 ? -1 : descriptors[1]);
    if (length >= 0)
        errno = EPROTO; // What reports a message that is none.
    return length == ssize_t(sizeof *request) && descriptors.size() == 2 &&
           !(message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) &&
           request->magic == GUARD_REQUEST_MAGIC && request->version == GUARD_VERSION &&
           request->nameLength < sizeof request->name &&
           (request->kind == GuardDeletion || request->kind == GuardReplacement);
}

void watchSocket(int events, int socket)
{
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = socket;
    ::epoll_ctl(events, EPOLL_CTL_ADD, socket, &event);
}

} // namespace

struct DeletionServer::Conversation
{
    core::Descriptor socket{-1};
    Clock::time_point hangUpAt;
    GuardVerdict verdict = GuardNotWanted;
    AcceptedDeletion deletion;
    QByteArray name;
    Keeper *keeper = nullptr; ///< Not null once the file is kept.
    QString id;
};

DeletionServer::DeletionServer(const Context &context)
    : m_context(context)
    , m_acceptance(context.protections)
{}

DeletionServer::~DeletionServer()
{
    if (!m_thread.joinable())
        return;
    m_isStopped = true;
    const quint64 one = 1;
    while (::write(m_wake.get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
    m_thread.join();
}

bool DeletionServer::start(const QByteArray &path, quint32 user, QString *error)
{
    m_listener.reset(listenAt(path, user));
    m_events.reset(::epoll_create1(EPOLL_CLOEXEC));
    m_wake.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!m_listener.isOpen() || !m_events.isOpen() || !m_wake.isOpen())
        return fail(error, QStringLiteral("无法监听 %1").arg(QFile::decodeName(path)), errno);
    watchSocket(m_events.get(), m_listener.get());
    watchSocket(m_events.get(), m_wake.get());
    m_thread = std::thread([this] { run(); });
    return true;
}

void DeletionServer::run()
{
    std::array<epoll_event, 64> events;
    while (!m_isStopped) {
        const int count =
            ::epoll_wait(m_events.get(), events.data(), int(events.size()), nextWaitMs());
        if (count == 0 && m_conversations.empty())
            m_acceptance.releaseFolder();
        for (int i = 0; i < count; ++i) {
            const int socket = events[size_t(i)].data.fd;
            if (socket == m_listener.get()) {
                accept();
                continue;
            }
            const auto found = m_conversations.find(socket);
            if (found != m_conversations.end() && !serve(found->second.get()))
                finish(socket);
        }
        finishSilent();
    }
    // What still has its name may lose it after this: the vault finds that out at the next start.
    for (const auto &entry : m_conversations)
        settle(*entry.second, false);
    m_conversations.clear();
}

int DeletionServer::nextWaitMs() const
{
    // Only programs that have not asked yet are hung up on; see finishSilent().
    for (const auto &entry : m_conversations) {
        if (entry.second->hangUpAt != Clock::time_point::max())
            return int(kRequestWait.count() / 4);
    }
    return m_conversations.empty() && m_acceptance.holdsFolder() ? kFolderWaitMs : -1;
}

void DeletionServer::accept()
{
    if (m_conversations.size() >= kMaxConversations) {
        ::epoll_ctl(m_events.get(), EPOLL_CTL_DEL, m_listener.get(), nullptr);
        m_isFull = true;
        return;
    }
    auto conversation = std::make_unique<Conversation>();
    conversation->socket.reset(
        ::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!conversation->socket.isOpen())
        return;
    conversation->hangUpAt = Clock::now() + kRequestWait;
    const int socket = conversation->socket.get();
    Conversation *added =
        m_conversations.emplace(socket, std::move(conversation)).first->second.get();
    watchSocket(m_events.get(), socket);
    // The request is mostly there already.
    if (!serve(added))
        finish(socket);
}

/// False when the conversation is over.
bool DeletionServer::serve(Conversation *conversation)
{
    if (!conversation->keeper)
        return answerRequest(conversation);
    GuardDone done;
    const ssize_t length = ::recv(conversation->socket.get(), &done, sizeof done, MSG_DONTWAIT);
    return length < 0 && (errno == EAGAIN || errno == EINTR);
}

bool DeletionServer::answerRequest(Conversation *conversation)
{
    GuardRequest message;
    core::Descriptor file(-1);
    core::Descriptor parent(-1);
    if (!receiveRequest(conversation->socket.get(), &message, &file, &parent))
        return errno == EAGAIN;
    DeletionRequest request;
    request.file = file.get();
    request.parent = parent.get();
    request.name = QByteArray(message.name, int(message.nameLength));
    request.kind = GuardKind(message.kind);
    if (!core::ipc::readPeer(conversation->socket.get(), &request.peer))
        return false;
    conversation->hangUpAt = Clock::time_point::max();
    keep(conversation, request);
    const GuardAnswer answer = {GUARD_ANSWER_MAGIC, GUARD_VERSION, quint16(conversation->verdict)};
    return ::send(conversation->socket.get(), &answer, sizeof answer,
                  MSG_NOSIGNAL | MSG_DONTWAIT) == ssize_t(sizeof answer) &&
           conversation->keeper;
}

void DeletionServer::keep(Conversation *conversation, const DeletionRequest &request)
{
    QString reason;
    AcceptedDeletion &accepted = conversation->deletion;
    if (!m_acceptance.judge(request, &accepted, &reason))
        return;
    conversation->verdict = GuardFailed;
    Keeper *keeper = m_context.keeperOf(accepted.owner);
    if (!keeper)
        return;
    Deletion deletion;
    deletion.file = accepted.file.get();
    deletion.path = accepted.path;
    deletion.originalPath = accepted.originalPath;
    deletion.peer = request.peer.uid;
    deletion.isReplaced = request.kind == GuardReplacement;
    const FilesInHand::File file(accepted.status.st_dev, accepted.status.st_ino);
    m_context.inHand.add(file);
    if (keeper->keep(deletion, &conversation->id, &reason)) {
        conversation->verdict = GuardKept;
        conversation->keeper = keeper;
        conversation->name = request.name;
    } else {
        m_context.inHand.remove(file);
        qWarning("morvane-vaultd: a file cannot be kept: %s", qUtf8Printable(reason));
    }
}

/// What has happened is looked up, not believed.
void DeletionServer::settle(const Conversation &conversation, bool isOver)
{
    if (!conversation.keeper)
        return;
    const AcceptedDeletion &deletion = conversation.deletion;
    const bool isThere = holdsName(deletion.parent->get(), conversation.name, deletion.status);
    if (isOver || !isThere)
        conversation.keeper->settle(conversation.id, !isThere);
    m_context.inHand.remove({deletion.status.st_dev, deletion.status.st_ino});
}

/// The program has made the call, or it has gone.
void DeletionServer::finish(int socket)
{
    const auto found = m_conversations.find(socket);
    settle(*found->second, true);
    m_conversations.erase(found);
    if (m_isFull) {
        m_isFull = false;
        watchSocket(m_events.get(), m_listener.get());
    }
}

void DeletionServer::finishSilent()
{
    const Clock::time_point now = Clock::now();
    std::vector<int> silent;
    for (const auto &entry : m_conversations) {
        if (entry.second->hangUpAt <= now)
            silent.push_back(entry.first);
    }
    for (const int socket : silent)
        finish(socket);
}

} // namespace services::vaultd
