#include "vaultd/hook/acceptance.h"

#include "vaultd/failure.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

// Missing from the headers of older systems; the same number on all architectures.
#ifndef SYS_faccessat2
#define SYS_faccessat2 439
#endif

namespace services::vaultd {

namespace {

bool isName(const QByteArray &name)
{
    return !name.isEmpty() && name.size() <= NAME_MAX && name != "." && name != ".." &&
           !name.contains('/') && !name.contains('\0');
}

/// What the kernel has in its memory: asks no file system that a user's program may serve.
bool identify(int fd, struct stat *status)
{
    struct statx found;
    if (::statx(fd, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_TYPE | STATX_INO, &found) != 0)
        return false;
    status->st_dev = makedev(found.stx_dev_major, found.stx_dev_minor);
    status->st_ino = found.stx_ino;
    status->st_mode = found.stx_mode;
    return true;
}

bool isSame(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// Served by a program of some user, who could hold the service up.
bool isServedByProgram(const core::Mount &mount)
{
    return mount.type == "fuse" || mount.type.startsWith("fuse.");
}

UserIdentity identityOf(const core::ipc::Peer &peer)
{
    UserIdentity user;
    user.uid = peer.uid;
    user.gid = peer.gid;
    user.groups = peer.groups;
    return user;
}

bool hasAccess(int folder, int wanted)
{
    if (::syscall(SYS_faccessat2, folder, "", wanted, AT_EACCESS | AT_EMPTY_PATH) == 0)
        return true;
    if (errno != ENOSYS)
        return false;
    // Kernels before 5.8 only check for the real user, which this thread has not changed.
    struct stat status;
    if (::fstat(folder, &status) != 0)
        return false;
    const uid_t uid = uid_t(::setfsuid(uid_t(-1)));
    return status.st_uid == uid && (status.st_mode >> 6 & wanted) == mode_t(wanted);
}

/// Whether the sender could remove the file from the folder.
bool mayRemove(const core::ipc::Peer &peer, int parent, const struct stat &file)
{
    if (peer.uid == 0)
        return true;
    QString error;
    struct stat folder;
    const ActAs user(identityOf(peer));
    if (!user.isActive(&error) || ::fstat(parent, &folder) != 0 || !hasAccess(parent, W_OK | X_OK))
        return false;
    return !(folder.st_mode & S_ISVTX) || file.st_uid == peer.uid || folder.st_uid == peer.uid;
}

/// Whether a user may have the content of a file that somebody else owns.
bool mayHave(const UserIdentity &user, int file, const struct stat &status)
{
    if (status.st_uid == user.uid)
        return true;
    if (status.st_uid == 0 || (status.st_mode & (S_ISUID | S_ISGID)))
        return false;
    QString error;
    const ActAs owner(user);
    return owner.isActive(&error) && hasAccess(file, R_OK);
}

} // namespace

QByteArray pathOfDescriptor(int fd)
{
    char buffer[PATH_MAX];
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(fd);
    const ssize_t length = ::readlink(link.constData(), buffer, sizeof buffer);
    return length > 0 && length < ssize_t(sizeof buffer) && buffer[0] == '/'
               ? QByteArray(buffer, int(length))
               : QByteArray();
}

bool holdsName(int parent, const QByteArray &name, const struct stat &file)
{
    struct stat named;
    return ::fstatat(parent, name.constData(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           isSame(named, file);
}

Acceptance::Acceptance(const Protections &protections)
    : m_protections(protections)
    , m_mountsChanged(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC))
    , m_mounts(core::readMountTable())
{}

void Acceptance::refreshMounts()
{
    pollfd changed = {m_mountsChanged.get(), POLLPRI, 0};
    if (::poll(&changed, 1, 0) <= 0)
        return;
    m_mounts = core::readMountTable();
    releaseFolder();
}

bool Acceptance::openParent(const QByteArray &path, const struct stat &expected)
{
    releaseFolder();
    const core::Mount *mount = path.isEmpty() ? nullptr : core::mountOf(m_mounts, path);
    if (!mount || isServedByProgram(*mount))
        return false;
    const auto folder = std::make_shared<const core::Descriptor>(
        ::open(path.constData(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat found;
    if (!folder->isOpen() || ::fstat(folder->get(), &found) != 0 || !isSame(found, expected) ||
        pathOfDescriptor(folder->get()) != path)
        return false;
    m_last.folder = folder;
    m_last.status = found;
    m_last.path = path;
    return true;
}

/// By its inode; it may have been renamed since.
bool Acceptance::isLastFolder(const struct stat &expected) const
{
    return m_last.folder && isSame(m_last.status, expected) &&
           pathOfDescriptor(m_last.folder->get()) == m_last.path;
}

/// The sender lives in another mount name space, where the folder has another path.
bool Acceptance::reopenByHandle(int parent, const struct stat &expected)
{
    union {
        file_handle handle;
        char space[sizeof(file_handle) + MAX_HANDLE_SZ];
    };
    handle.handle_bytes = MAX_HANDLE_SZ;
    int mountId = 0;
    if (::name_to_handle_at(parent, "", &handle, &mountId, AT_EMPTY_PATH) != 0)
        return false;
    for (const core::Mount &mount : qAsConst(m_mounts)) {
        // A part of Btrfs has a device number that the table does not know.
        if (isServedByProgram(mount) ||
            (mount.type != "btrfs" && makedev(mount.major, mount.minor) != expected.st_dev))
            continue;
        const core::Descriptor base(
            ::open(mount.mountPoint.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        const core::Descriptor found(
            base.isOpen() ? ::open_by_handle_at(base.get(), &handle, O_PATH | O_CLOEXEC) : -1);
        if (found.isOpen() && openParent(pathOfDescriptor(found.get()), expected))
            return true;
    }
    return false;
}

bool Acceptance::reopen(const DeletionRequest &request, AcceptedDeletion *accepted, QString *reason)
{
    struct stat file;
    struct stat parent;
    if (!identify(request.file, &file) || !identify(request.parent, &parent) ||
        !S_ISREG(file.st_mode) || !S_ISDIR(parent.st_mode))
        return fail(reason, QStringLiteral("不是普通文件"));
    refreshMounts();
    if (!isLastFolder(parent) && !openParent(pathOfDescriptor(request.parent), parent) &&
        !reopenByHandle(request.parent, parent))
        return fail(reason, QStringLiteral("无法确认文件所在的目录"));
    accepted->parent = m_last.folder;
    accepted->file.reset(::openat(accepted->parent->get(), request.name.constData(),
                                  O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!accepted->file.isOpen() || ::fstat(accepted->file.get(), &accepted->status) != 0 ||
        !isSame(accepted->status, file) || !S_ISREG(accepted->status.st_mode))
        return fail(reason, QStringLiteral("目录中没有以此为名的该文件"));
    accepted->path =
        m_last.path == "/" ? m_last.path + request.name : m_last.path + '/' + request.name;
    return true;
}

bool Acceptance::findOwner(const DeletionRequest &request, const ProtectionSnapshot &snapshot,
                           AcceptedDeletion *accepted, QString *reason) const
{
    const GuardMapHeader *map = mapIn(snapshot.map);
    const auto ownerOf = [&](const QByteArray &path, uid_t preferred) {
        const int index =
            guardOwnerOf(map, path.constData(), size_t(path.size()), request.kind, preferred);
        return index < 0 ? uid_t(-1) : uid_t(guardOwnerAt(map, quint32(index))->uid);
    };
    for (const std::shared_ptr<const TrashIndex> &trash : snapshot.trashes) {
        if (!trash->find(accepted->path, &accepted->originalPath))
            continue;
        // The user can write anything into the notes of the own trash: it counts for the own vault.
        accepted->owner = trash->user().uid;
        const QByteArray &path =
            accepted->originalPath.isEmpty() ? accepted->path : accepted->originalPath;
        return ownerOf(path, accepted->owner) == accepted->owner ||
               fail(reason, QStringLiteral("不在受保护的范围内"));
    }
    accepted->owner = ownerOf(accepted->path, accepted->status.st_uid);
    return accepted->owner != uid_t(-1) || fail(reason, QStringLiteral("不在受保护的范围内"));
}

bool Acceptance::judge(const DeletionRequest &request, AcceptedDeletion *accepted, QString *reason)
{
    const std::shared_ptr<const ProtectionSnapshot> snapshot = m_protections.current();
    if (!snapshot || !isName(request.name))
        return fail(reason, QStringLiteral("请求无效"));
    if (!reopen(request, accepted, reason) || !findOwner(request, *snapshot, accepted, reason))
        return false;
    if (!mayRemove(request.peer, accepted->parent->get(), accepted->status))
        return fail(reason, QStringLiteral("请求者无权删除该文件"));
    const auto owner = snapshot->owners.constFind(accepted->owner);
    if (owner == snapshot->owners.constEnd() ||
        !mayHave(*owner, accepted->file.get(), accepted->status))
        return fail(reason, QStringLiteral("保护区的用户无权拥有该文件"));
    return true;
}

} // namespace services::vaultd
