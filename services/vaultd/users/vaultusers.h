#pragma once

#include "vaultd/users/uservault.h"

#include <functional>
#include <map>
#include <memory>

namespace services::vaultd {

/// The vaults of one service, by user: for every account of the machine, in its home; or a single
/// one for everybody who may connect. One thread.
class VaultUsers
{
public:
    struct Options
    {
        QString vaultParent;             ///< Of the single vault; empty: each user's home.
        QString stateDir;                ///< Of the single vault, or with a folder "users" for all.
        int checkIntervalMs = 60 * 1000; ///< Between two looks at ages and free space.
        VaultThread::Environment environment = VaultThread::Environment::ofSystem();
    };
    /// Runs once for each vault, when it is open, before it reports any change.
    using OnOpened = std::function<void(UserVault *vault)>;

    VaultUsers(const Options &options, OnOpened onOpened);

    bool isSingle() const { return !m_options.vaultParent.isEmpty(); }
    /// Opens the single vault, which must work; or those of all users who have protection on, whose
    /// failures are logged and tried again by openEnabled().
    [[nodiscard]] bool start(QString *error);
    /// Tries those whose home was not there before, such as one that is mounted at the log-in.
    void openEnabled();
    /// The vault of a user, opened if need be; null, with a text for the user, if there is none.
    UserVault *of(uid_t uid, QString *error);
    /// Nothing is opened; null if it is not open.
    UserVault *opened(uid_t uid) const;
    QVector<UserVault *> all() const;
    /// Whether any user, also one whose vault is not open, has protection on.
    bool isAnyEnabled() const;

private:
    QString stateDirOf(uid_t uid) const;
    QVector<uid_t> enabledUids() const;
    UserVault *open(const UserIdentity &user, const UserVault::Place &place, QString *error);
    uid_t keyOf(uid_t uid) const;

    Options m_options;
    OnOpened m_onOpened;
    std::map<uid_t, std::unique_ptr<UserVault>> m_vaults;
};

} // namespace services::vaultd
