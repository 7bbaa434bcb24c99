#include "vaultd/users/useridentity.h"

#include "vaultd/failure.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

QVector<gid_t> groupsOf(const char *name, gid_t gid)
{
    int count = 64;
    QVector<gid_t> groups(count);
    while (::getgrouplist(name, gid, groups.data(), &count) < 0 && count > groups.size())
        groups.resize(count);
    groups.resize(std::min(count, groups.size()));
    return groups;
}

QVector<gid_t> groupsOfThread()
{
    QVector<gid_t> groups(std::max(0, ::getgroups(0, nullptr)));
    groups.resize(std::max(0, ::getgroups(groups.size(), groups.data())));
    return groups;
}

QVector<gid_t> sorted(QVector<gid_t> groups, gid_t gid)
{
    groups.append(gid);
    std::sort(groups.begin(), groups.end());
    groups.erase(std::unique(groups.begin(), groups.end()), groups.end());
    return groups;
}

} // namespace

bool UserIdentity::find(uid_t uid, UserIdentity *user, QString *error)
{
    QByteArray buffer(16 * 1024, '\0');
    struct passwd account;
    struct passwd *found = nullptr;
    int code = 0;
    while ((code = ::getpwuid_r(uid, &account, buffer.data(), size_t(buffer.size()), &found)) ==
               ERANGE &&
           buffer.size() < 1024 * 1024)
        buffer.resize(buffer.size() * 2);
    if (!found)
        return code == 0 ? fail(error, QStringLiteral("系统中没有用户 %1").arg(uid))
                         : fail(error, QStringLiteral("无法查询用户 %1").arg(uid), code);
    user->uid = uid;
    user->gid = account.pw_gid;
    user->name = account.pw_name;
    user->groups = groupsOf(account.pw_name, account.pw_gid);
    const QString home = QFile::decodeName(account.pw_dir);
    user->home = QDir::isAbsolutePath(home) ? QDir::cleanPath(home) : QString();
    return true;
}

UserIdentity UserIdentity::ofProcess()
{
    UserIdentity user;
    QString error;
    if (!find(::geteuid(), &user, &error))
        user.home = QDir::homePath();
    user.uid = ::geteuid();
    user.gid = ::getegid();
    user.groups = groupsOfThread();
    return user;
}

bool setThreadGroups(const QVector<gid_t> &groups)
{
    // The C library's function would change every thread of the process.
    return ::syscall(SYS_setgroups, size_t(groups.size()), groups.constData()) == 0;
}

ActAs::ActAs(const UserIdentity &user)
    : m_formerUid(::geteuid())
    , m_formerGid(::getegid())
{
    m_formerGroups = groupsOfThread();
    m_isSame = user.uid == m_formerUid && user.gid == m_formerGid &&
               sorted(user.groups, user.gid) == sorted(m_formerGroups, m_formerGid);
    if (m_isSame || user.uid == 0) {
        // Root keeps its rights anyway; what it makes is root's.
        m_isSame = true;
        m_isActive = m_formerUid == user.uid;
        return;
    }
    if (!setThreadGroups(user.groups))
        return;
    ::setfsgid(user.gid);
    ::setfsuid(user.uid);
    // Both report what was before, never an error; asked with an invalid id, they tell what is.
    m_isActive =
        uid_t(::setfsuid(uid_t(-1))) == user.uid && gid_t(::setfsgid(gid_t(-1))) == user.gid;
}

ActAs::~ActAs()
{
    if (m_isSame)
        return;
    ::setfsuid(m_formerUid);
    ::setfsgid(m_formerGid);
    if (!setThreadGroups(m_formerGroups) && m_isActive)
        qFatal("cannot take the service's own groups back");
}

bool ActAs::isActive(QString *error) const
{
    return m_isActive || fail(error, QStringLiteral("无法以该用户的权限访问文件"));
}

} // namespace services::vaultd
