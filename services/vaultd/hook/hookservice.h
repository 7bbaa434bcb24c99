#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>
#include <memory>
#include <sys/types.h>

namespace services::vaultd {

class Keeper;

/// What is protected for one user. Paths are absolute; bytes as they are on disk.
struct UserProtection
{
    uid_t uid = uid_t(-1);
    gid_t gid = gid_t(-1);
    QByteArray home;
    QList<QByteArray> directories;
    QList<QByteArray> extensions; ///< Lower case, without the dot; at most 31 bytes each.
    bool isEnabled = false;
    /// Folders in the user's own keeping that take files while the service is silent; one for each
    /// file system, made if missing. The first one is in the home.
    QList<QByteArray> spoolDirs;
    /// Folders below `directories` that are left out, as the vaults and ~/.cache.
    QList<QByteArray> leftOutDirectories;
    QList<QByteArray> leftOutNames = {QByteArrayLiteral(".git")}; ///< Likewise, by name anywhere.
    bool keepsReplaced = false; ///< Also keep a file that a rename replaces.
};

/// The service's side of the preloaded library: tells it what is protected, takes the files that
/// are about to be deleted, adopts what was spooled while the service was away, and remembers where
/// files in the trash come from.
///
/// Public functions are for one thread. Files are kept on threads of the service's own, one for
/// each user that deletes, so that no user can hold up another; the keepers are called from there.
class HookService
{
public:
    /// The keeper of that user's vault, null if there is none now. Called from any thread; the
    /// keeper has to outlive the HookService.
    using KeeperOf = std::function<Keeper *(uid_t owner)>;

    /// `runDir`: GUARD_RUN_DIR, elsewhere in tests only. Must not be writable by other users.
    HookService(const QByteArray &runDir, const KeeperOf &keeperOf);
    /// Stops listening. The maps stay, so that programs use the spool until the next start.
    ~HookService();
    HookService(const HookService &) = delete;
    HookService &operator=(const HookService &) = delete;

    /// Makes the folder. Nothing is protected yet, but what a former run protected still goes to
    /// the spools.
    [[nodiscard]] bool start(QString *error);
    /// Begins to protect for the user, or changes what is protected; adopts the user's spools.
    [[nodiscard]] bool openFor(const UserProtection &protection, QString *error);
    /// Ends the protection for the user: at once for programs that are running, too.
    void close(uid_t uid);
    /// Until finishOpening() openFor() changes no map: at the start each of many users would change
    /// those of all.
    void beginOpening();
    /// Publishes what has been opened, and ends the protection of users whom a former run protected
    /// and this one has not opened.
    [[nodiscard]] bool finishOpening(QString *error);
    /// Ends all protection and removes maps and sockets. For the time when the library is removed.
    void withdraw();

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace services::vaultd
