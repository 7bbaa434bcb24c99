#include "vaultd/attributes.h"

#include <QByteArray>
#include <QDebug>

#include <algorithm>
#include <cerrno>
#include <sys/xattr.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr int kMaxAttributeBytes = 64 * 1024;
const char *const kAccessList = "system.posix_acl_access";

/// A program that once had privileges must not get them back from a vault.
bool isPrivilege(const QByteArray &name)
{
    return name == "security.capability" || name == "security.ima" || name == "security.evm";
}

void setAttribute(int fd, const QByteArray &name, const QByteArray &value)
{
    if (!isPrivilege(name) &&
        ::fsetxattr(fd, name.constData(), value.constData(), size_t(value.size()), 0) != 0 &&
        errno != ENOTSUP)
        qWarning() << "[Attributes] not kept:" << name;
}

} // namespace

void copyAttributes(int from, int to)
{
    QByteArray names(kMaxAttributeBytes, '\0');
    const ssize_t length = ::flistxattr(from, names.data(), size_t(names.size()));
    names.resize(int(std::max<ssize_t>(0, length)));
    const QList<QByteArray> list = names.split('\0');
    for (const QByteArray &name : list) {
        QByteArray value(kMaxAttributeBytes, '\0');
        const ssize_t size = name.isEmpty() ? -1
                                            : ::fgetxattr(from, name.constData(), value.data(),
                                                          size_t(value.size()));
        if (size >= 0)
            setAttribute(to, name, value.left(int(size)));
    }
}

void applyRecord(int fd, const VaultFile &file, uid_t user)
{
    // The owner first: a change of it takes permissions away. The list before the permissions,
    // which it shares bits with. The times last.
    if (file.ownerUid >= 0)
        (void)!::fchown(fd, uid_t(file.ownerUid), gid_t(file.ownerGid));
    if (file.mode >= 0)
        ::fremovexattr(fd, kAccessList);
    for (auto it = file.attributes.cbegin(); it != file.attributes.cend(); ++it)
        setAttribute(fd, it.key(), it.value());
    if (file.mode >= 0)
        ::fchmod(fd, mode_t(file.mode) & (file.ownerUid == qint64(user) ? 07777 : 01777));
    const struct timespec times[] = {file.accessed, file.modified};
    if (file.modified.tv_sec != 0 || file.modified.tv_nsec != 0)
        ::futimens(fd, times);
}

} // namespace services::vaultd
