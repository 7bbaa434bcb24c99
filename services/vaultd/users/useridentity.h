#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include <sys/types.h>

namespace services::vaultd {

/// An account as far as the rights to files go.
struct UserIdentity
{
    uid_t uid = uid_t(-1);
    gid_t gid = gid_t(-1);
    QVector<gid_t> groups; ///< All of them, `gid` included.
    QByteArray name;       ///< As in the account database.
    QString home;          ///< Absolute; empty if the account has none.

    /// From the account database. False, with a text for the user, for a uid without an account.
    [[nodiscard]] static bool find(uid_t uid, UserIdentity *user, QString *error);
    /// The user of this process, whether there is an account or not.
    static UserIdentity ofProcess();
};

/// Lets this thread, and no other, reach files with the rights of a user only, as long as the
/// object lives. Files and folders that it makes are the user's. Only root can take another
/// user's rights; everyone has their own.
class ActAs
{
public:
    explicit ActAs(const UserIdentity &user);
    ~ActAs();
    ActAs(const ActAs &) = delete;
    ActAs &operator=(const ActAs &) = delete;

    /// False if the rights could not be taken: nothing must be done then.
    [[nodiscard]] bool isActive(QString *error) const;

private:
    bool m_isActive = false;
    bool m_isSame = false; ///< The process has these rights already.
    QVector<gid_t> m_formerGroups;
    uid_t m_formerUid;
    gid_t m_formerGid;
};

/// The groups of a process's user as setgroups(2) takes them, without touching other threads.
[[nodiscard]] bool setThreadGroups(const QVector<gid_t> &groups);

} // namespace services::vaultd
