#include "vaultd/keep/vaultdir.h"

#include "core/directorystream.h"
#include "core/saferename.h"
#include "vault/vaultrecord.h"
#include "vaultd/failure.h"

#include <QDebug>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/xattr.h>

namespace services::vaultd {

namespace {

// Only root can set it, so a folder that bears it was made here.
constexpr char kMarker[] = "trusted.morvane.vault";
constexpr int kMaxAside = 1000;

int openFolder(int dir, const char *name)
{
    return ::openat(dir, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

bool isSameFile(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// False for FAT, exFAT and NTFS, where the mount says whose everything is.
bool knowsOwners(int fd)
{
    constexpr long kFuse = 0x65735546;
    constexpr long kOthers[] = {0x4d44, 0x2011BAB0, 0x7366746e, kFuse};
    struct statfs info;
    return ::fstatfs(fd, &info) != 0 || std::find(std::begin(kOthers), std::end(kOthers),
                                                  long(info.f_type)) == std::end(kOthers);
}

/// Root's, and nobody else writes there.
bool isOurs(int fd)
{
    struct stat info;
    return ::fstat(fd, &info) == 0 && S_ISDIR(info.st_mode) &&
           (!knowsOwners(fd) || (info.st_uid == ::geteuid() && (info.st_mode & 022) == 0));
}

QByteArray markOf(const VaultOwner &owner)
{
    return owner.isShared() ? QByteArrayLiteral("all") : QByteArray::number(owner.uid);
}

/// What stands on the folder; empty if it was not made here.
QByteArray markOn(int fd)
{
    char mark[32];
    const ssize_t length = ::fgetxattr(fd, kMarker, mark, sizeof mark);
    return length > 0 ? QByteArray(mark, int(length)) : QByteArray();
}

QByteArray accessList(uid_t uid, bool isFolder)
{
    const quint16 read = ACL_READ | (isFolder ? ACL_EXECUTE : 0);
    const quint16 all = read | ACL_WRITE;
    const auto kNobody = quint32(ACL_UNDEFINED_ID);
    const struct posix_acl_xattr_entry entries[] = {
        {ACL_USER_OBJ, all, kNobody}, {ACL_USER, read, uid},   {ACL_GROUP_OBJ, 0, kNobody},
        {ACL_MASK, read, kNobody},    {ACL_OTHER, 0, kNobody},
    };
    const struct posix_acl_xattr_header header = {POSIX_ACL_XATTR_VERSION};
    return QByteArray(reinterpret_cast<const char *>(&header), sizeof header) +
           QByteArray(reinterpret_cast<const char *>(entries), sizeof entries);
}

} // namespace

void allowReading(int fd, uid_t uid, bool isFolder)
{
    const QByteArray list = accessList(uid, isFolder);
    ::fsetxattr(fd, "system.posix_acl_access", list.constData(), size_t(list.size()), 0);
}

VaultDir::VaultDir(const QByteArray &parent, const VaultOwner &owner)
    : m_parentPath(parent)
    , m_owner(owner)
{}

QString VaultDir::path() const
{
    return QStringLiteral("/proc/self/fd/%1").arg(root());
}

int VaultDir::takeAside()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const int fd = m_aside.isEmpty() ? -1 : openFolder(m_parent.get(), m_aside.constData());
    m_aside.clear();
    return fd;
}

bool VaultDir::open(QString *error)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (isOpen())
        return isInPlace() || putBack(error);
    return openParent(error) && take(true, error);
}

bool VaultDir::openExisting(QString *error)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (isOpen())
        return isInPlace() || putBack(error);
    return openParent(error) && take(false, error);
}

bool VaultDir::openParent(QString *error)
{
    if (!m_parent.isOpen())
        m_parent.reset(::open(m_parentPath.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return m_parent.isOpen() ||
           fail(error,
                QStringLiteral("无法打开保护区的上级目录 %1").arg(QFile::decodeName(m_parentPath)),
                errno);
}

bool VaultDir::take(bool mayMake, QString *error)
{
    m_root.reset(openFolder(m_parent.get(), vault::kVaultDir));
    const bool isTaken = m_root.isOpen() || errno != ENOENT;
    // A user cannot make root's folders, only move them: what is ours by its owner is ours.
    if (m_root.isOpen() && isOurs(m_root.get()) && isFit(m_root.get(), mayMake))
        return secure(error);
    m_root.reset(-1);
    if (isTaken && mayMake && !putAside(error))
        return false;
    QByteArray moved;
    if (findMoved(&moved)) {
        m_root.reset(openFolder(m_parent.get(), moved.constData()));
        if (m_root.isOpen() && isOurs(m_root.get()) && renameBack(moved, error))
            return secure(error);
        m_root.reset(-1);
        return fail(error, QStringLiteral("保护区被移动，且无法移回"));
    }
    if (!mayMake)
        return fail(error, QStringLiteral("没有保护区"));
    return make(error) && secure(error);
}

/// Made here for the same owner or, if it may be taken over, by a version that left no mark.
bool VaultDir::isFit(int fd, bool mayTakeOver) const
{
    const QByteArray mark = markOn(fd);
    return mark == markOf(m_owner) || (mark.isEmpty() && (mayTakeOver || !knowsOwners(fd)));
}

bool VaultDir::make(QString *error)
{
    if (::mkdirat(m_parent.get(), vault::kVaultDir, 0700) != 0)
        return fail(error, QStringLiteral("无法创建保护区"), errno);
    m_root.reset(openFolder(m_parent.get(), vault::kVaultDir));
    return (m_root.isOpen() && isOurs(m_root.get())) ||
           fail(error, QStringLiteral("无法打开保护区"), m_root.isOpen() ? EPERM : errno);
}

/// The rights of both folders. They are set each time: who has root's folders of an earlier version
/// has other ones.
bool VaultDir::secure(QString *error)
{
    setAppendOnly(false);
    if (::mkdirat(m_root.get(), vault::kMetaDir, 0700) != 0 && errno != EEXIST)
        return fail(error, QStringLiteral("无法创建记录目录"), errno);
    core::Descriptor meta(openFolder(m_root.get(), vault::kMetaDir));
    if (!meta.isOpen() || !isOurs(meta.get()))
        return fail(error, QStringLiteral("无法打开记录目录"), meta.isOpen() ? EPERM : errno);
    for (const int fd : {m_root.get(), meta.get()}) {
        if (::fchmod(fd, m_owner.isShared() ? 0755 : 0700) != 0 && knowsOwners(fd))
            return fail(error, QStringLiteral("无法设置保护区权限"), errno);
        if (!m_owner.isShared())
            allowReading(fd, m_owner.uid, true);
    }
    if (!m_owner.isShared()) {
        // Records are made with mode 0640, and inherit the rest.
        const QByteArray list = accessList(m_owner.uid, true);
        ::fsetxattr(meta.get(), "system.posix_acl_default", list.constData(), size_t(list.size()),
                    0);
    }
    const QByteArray mark = markOf(m_owner);
    ::fsetxattr(m_root.get(), kMarker, mark.constData(), size_t(mark.size()), 0);
    m_meta.reset(meta.release());
    setAppendOnly(true);
    return true;
}

bool VaultDir::isInPlace() const
{
    struct stat held;
    struct stat named;
    return ::fstat(m_root.get(), &held) == 0 && held.st_nlink > 0 &&
           ::fstatat(m_parent.get(), vault::kVaultDir, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           isSameFile(held, named);
}

/// Which can be undone: a folder of root can be renamed by others only within its parent.
bool VaultDir::putBack(QString *error)
{
    struct stat held;
    if (::fstat(m_root.get(), &held) == 0 && held.st_nlink == 0) {
        // Removed as a whole, by root: begin anew.
        m_root.reset(-1);
        m_meta.reset(-1);
        m_parent.reset(-1);
        return openParent(error) && take(true, error);
    }
    struct stat named;
    QByteArray moved;
    if (!findMoved(&moved))
        return fail(error, QStringLiteral("保护区不在原来的位置"));
    if (::fstatat(m_parent.get(), vault::kVaultDir, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        !putAside(error))
        return false;
    return renameBack(moved, error);
}

bool VaultDir::renameBack(const QByteArray &moved, QString *error)
{
    setAppendOnly(false);
    const int code = core::renameToFreeAt(m_parent.get(), moved, m_parent.get(), vault::kVaultDir);
    setAppendOnly(m_changes == 0);
    if (code != 0 || !isInPlace())
        return fail(error, QStringLiteral("保护区被移动，且无法移回"), code);
    qWarning() << "[VaultDir] put back from" << moved;
    return true;
}

bool VaultDir::putAside(QString *error)
{
    int code = EEXIST;
    for (int i = 0; code == EEXIST && i < kMaxAside; ++i) {
        m_aside = QByteArray(vault::kVaultDir) + ".aside";
        if (i > 0)
            m_aside += '-' + QByteArray::number(i);
        code = core::renameToFreeAt(m_parent.get(), vault::kVaultDir, m_parent.get(), m_aside);
    }
    if (code != 0) {
        m_aside.clear();
        return fail(error, QStringLiteral("保护区的位置被占用"), code);
    }
    qWarning() << "[VaultDir] something else was in the vault's place; it is now" << m_aside;
    return true;
}

/// Looks for the folder held or, before one is, for any that was made here.
bool VaultDir::findMoved(QByteArray *name) const
{
    const int fd = openFolder(m_parent.get(), ".");
    const core::DirectoryStream stream(fd < 0 ? nullptr : ::fdopendir(fd));
    struct stat held;
    const bool isHeld = m_root.isOpen() && ::fstat(m_root.get(), &held) == 0;
    while (const struct dirent *entry = stream ? ::readdir(stream.get()) : nullptr) {
        struct stat info;
        if (qstrcmp(entry->d_name, ".") == 0 || qstrcmp(entry->d_name, "..") == 0 ||
            ::fstatat(m_parent.get(), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISDIR(info.st_mode) || info.st_uid != ::geteuid())
            continue;
        const core::Descriptor dir(openFolder(m_parent.get(), entry->d_name));
        if (isHeld ? !isSameFile(info, held)
                   : !dir.isOpen() || markOn(dir.get()) != markOf(m_owner))
            continue;
        *name = entry->d_name;
        return true;
    }
    return false;
}

void VaultDir::setAppendOnly(bool isSet) const
{
    int flags = 0;
    if (::ioctl(m_root.get(), FS_IOC_GETFLAGS, &flags) != 0)
        return;
    const int wanted = isSet ? flags | FS_APPEND_FL : flags & ~FS_APPEND_FL;
    if (wanted != flags && ::ioctl(m_root.get(), FS_IOC_SETFLAGS, &wanted) != 0)
        qWarning() << "[VaultDir] cannot change the append-only mark" << errno;
}

VaultDir::Change::Change(VaultDir *dir)
    : m_dir(dir)
{
    if (!m_dir)
        return;
    const std::lock_guard<std::mutex> lock(m_dir->m_mutex);
    if (m_dir->m_changes++ == 0 && m_dir->isOpen())
        m_dir->setAppendOnly(false);
}

VaultDir::Change::~Change()
{
    if (!m_dir)
        return;
    const std::lock_guard<std::mutex> lock(m_dir->m_mutex);
    if (--m_dir->m_changes == 0 && m_dir->isOpen())
        m_dir->setAppendOnly(true);
}

} // namespace services::vaultd
