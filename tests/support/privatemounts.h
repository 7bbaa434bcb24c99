#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace testsupport {

/// Gives the test process mounts of its own, which end with it. False where the system does not
/// allow that. To be called before any thread is started.
inline bool enterPrivateMounts()
{
    const QByteArray uid = QByteArray::number(qulonglong(::geteuid()));
    const QByteArray gid = QByteArray::number(qulonglong(::getegid()));
    const auto write = [](const char *path, const QByteArray &text) {
        QFile file(QString::fromLatin1(path));
        return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
               file.write(text) == text.size();
    };
    if (::unshare(CLONE_NEWNS) != 0 &&
        (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !write("/proc/self/setgroups", "deny") ||
         !write("/proc/self/uid_map", uid + ' ' + uid + " 1") ||
         !write("/proc/self/gid_map", gid + ' ' + gid + " 1")))
        return false;
    return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// A mount over an existing directory, taken away at the end.
class PrivateMount
{
public:
    /// An empty file system in memory.
    explicit PrivateMount(const QString &target)
        : PrivateMount(target, "tmpfs", "tmpfs", 0)
    {}
    /// Another view of the directory `source`.
    PrivateMount(const QString &source, const QString &target)
        : PrivateMount(target, QFile::encodeName(source), nullptr, MS_BIND)
    {}
    ~PrivateMount()
    {
        if (m_mounted)
            ::umount2(m_target.constData(), MNT_DETACH);
    }
    PrivateMount(const PrivateMount &) = delete;
    PrivateMount &operator=(const PrivateMount &) = delete;

    bool isMounted() const { return m_mounted; }

private:
    PrivateMount(const QString &target, const QByteArray &source, const char *type, ulong flags)
        : m_target(QFile::encodeName(target))
        , m_mounted(::mount(source.constData(), m_target.constData(), type, flags, nullptr) == 0)
    {}

    QByteArray m_target;
    bool m_mounted;
};

} // namespace testsupport
