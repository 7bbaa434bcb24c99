#pragma once

#include "core/descriptor.h"
#include "core/ipc/peer.h"
#include "core/mounttable.h"
#include "guard/guardprotocol.h"
#include "vaultd/hook/protections.h"

#include <memory>
#include <sys/stat.h>

namespace services::vaultd {

/// What the library has sent: neither the descriptors nor the name are trusted.
struct DeletionRequest
{
    int file = -1; ///< Stay the caller's.
    int parent = -1;
    QByteArray name;
    GuardKind kind = GuardDeletion;
    core::ipc::Peer peer;
};

/// A deletion that was found to be what it claims. The descriptors are this service's own, on its
/// own mounts.
struct AcceptedDeletion
{
    core::Descriptor file{-1};
    std::shared_ptr<const core::Descriptor> parent; ///< Null until it is known.
    QByteArray path;
    QByteArray originalPath; ///< Empty: `path`.
    uid_t owner = uid_t(-1); ///< Whose vault takes it.
    struct stat status = {};
};

/// Decides what comes into a vault. One thread.
///
/// A regular file is accepted if
/// - the parent folder holds it under the name at this moment;
/// - the sender may remove names from that folder (by file system rights, sticky bit observed);
/// - its path, which the kernel reports, is protected for somebody: that user's vault takes it;
/// - it is that user's, or it is a plain file (no setuid or setgid bit, not root's) that the user
///   may read anyway.
class Acceptance
{
public:
    explicit Acceptance(const Protections &protections);

    [[nodiscard]] bool judge(const DeletionRequest &request, AcceptedDeletion *accepted,
                             QString *reason);

    /// The folder of the last deletion is kept open for the next one, which mostly is in it. A
    /// folder that is open keeps its file system from being unmounted: not for long.
    bool holdsFolder() const { return m_last.folder != nullptr; }
    void releaseFolder() { m_last = Folder(); }

private:
    struct Folder
    {
        std::shared_ptr<const core::Descriptor> folder;
        struct stat status = {};
        QByteArray path;
    };

    bool reopen(const DeletionRequest &request, AcceptedDeletion *accepted, QString *reason);
    bool reopenByHandle(int parent, const struct stat &expected);
    bool openParent(const QByteArray &path, const struct stat &expected);
    bool isLastFolder(const struct stat &expected) const;
    bool findOwner(const DeletionRequest &request, const ProtectionSnapshot &snapshot,
                   AcceptedDeletion *accepted, QString *reason) const;
    void refreshMounts();

    const Protections &m_protections;
    core::Descriptor m_mountsChanged; ///< Of /proc/self/mountinfo.
    QVector<core::Mount> m_mounts;
    Folder m_last;
};

/// The path of an open file as the kernel reports it; empty if it has none.
QByteArray pathOfDescriptor(int fd);
/// Whether the folder holds the file under that name.
bool holdsName(int parent, const QByteArray &name, const struct stat &file);

} // namespace services::vaultd
