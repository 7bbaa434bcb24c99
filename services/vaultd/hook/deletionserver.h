#pragma once

#include "core/descriptor.h"
#include "vaultd/hook/acceptance.h"
#include "vaultd/hook/hookservice.h"

#include <atomic>
#include <map>
#include <memory>
#include <thread>

namespace services::vaultd {

class Keeper;

/// Talks to the programs of one user that delete: one listening socket, one thread. Files are kept
/// on that thread, so users do not wait for each other.
class DeletionServer
{
public:
    struct Context
    {
        const Protections &protections;
        HookService::KeeperOf keeperOf;
        FilesInHand &inHand;
    };

    explicit DeletionServer(const Context &context);
    /// Stops listening, settles what it can, ends the thread.
    ~DeletionServer();
    DeletionServer(const DeletionServer &) = delete;
    DeletionServer &operator=(const DeletionServer &) = delete;

    /// Listens at the path, in place of whatever socket is there. `user` alone may connect, besides
    /// root; GUARD_ANY_USER: everyone.
    [[nodiscard]] bool start(const QByteArray &path, quint32 user, QString *error);

private:
    /// From the connection to the moment when the program has made the real call.
    struct Conversation;

    void run();
    void accept();
    bool serve(Conversation *conversation);
    bool answerRequest(Conversation *conversation);
    void keep(Conversation *conversation, const DeletionRequest &request);
    void settle(const Conversation &conversation, bool isOver);
    void finish(int socket);
    void finishSilent();
    int nextWaitMs() const;

    Context m_context;
    Acceptance m_acceptance;
    core::Descriptor m_listener{-1};
    core::Descriptor m_events{-1}; ///< epoll.
    core::Descriptor m_wake{-1};
    bool m_isFull = false; ///< Nobody else is let in at the moment.
    std::atomic<bool> m_isStopped{false};
    std::map<int, std::unique_ptr<Conversation>> m_conversations; ///< By socket.
    std::thread m_thread;
};

} // namespace services::vaultd
