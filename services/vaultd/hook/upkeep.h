#pragma once

#include "core/descriptor.h"
#include "vaultd/hook/spool.h"
#include "vaultd/hook/trashindex.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <thread>

namespace services::vaultd {

/// Watches the trashes and the spools of one user, on a thread of its own.
class Upkeep
{
public:
    /// A trash, or a volume that may have one, has come or gone. Called on the thread.
    using OnTrashesChanged = std::function<void()>;

    Upkeep(const UserIdentity &user, const QByteArray &home, const QList<QByteArray> &spoolDirs,
           const FilesInHand &inHand, const HookService::KeeperOf &keeperOf,
           const OnTrashesChanged &onTrashesChanged);
    ~Upkeep();
    Upkeep(const Upkeep &) = delete;
    Upkeep &operator=(const Upkeep &) = delete;

    [[nodiscard]] bool start(QString *error);
    std::shared_ptr<const TrashIndex> trashes() const { return m_trashes; }

private:
    struct Watch
    {
        enum Kind { Files, Spool, Ancestor } kind;
        QByteArray path; ///< Of the trash or of the spool.
    };

    void run();
    void findTrashes();
    void watchAll();
    void watchTrash(const QByteArray &root);
    enum class Watched { Newly, Already, No };
    Watched watch(const QByteArray &dir, Watch::Kind kind, const QByteArray &path);
    bool mayLeadToTrash(const QByteArray &name) const;
    void readEvents();
    bool adoptAll();

    QByteArray m_home;
    QList<QByteArray> m_spoolDirs;
    OnTrashesChanged m_onTrashesChanged;
    std::shared_ptr<TrashIndex> m_trashes;
    Spool m_spool;
    core::Descriptor m_notify{-1}; ///< inotify.
    core::Descriptor m_wake{-1};
    core::Descriptor m_mountsChanged{-1};
    std::map<int, Watch> m_watches;
    bool m_hasNews = false; ///< Something may have come into a spool.
    std::atomic<bool> m_isStopped{false};
    std::thread m_thread;
};

} // namespace services::vaultd
