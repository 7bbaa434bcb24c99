#include "vaultd/users/vaultusers.h"

#include "vaultd/failure.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

/// A home that another user owns is no place for a vault: its owner could take it away.
bool isUsableHome(const UserIdentity &user, QString *error)
{
    struct stat info;
    if (user.home.isEmpty() || user.home == QLatin1String("/"))
        return fail(error, QStringLiteral("该用户没有主目录，无法使用保护区"));
    if (!look(user.home, &info) && errno != ENOENT)
        return fail(error, QStringLiteral("无法访问主目录 %1").arg(user.home), errno);
    const QString real = QFileInfo(user.home).canonicalFilePath();
    if (real.isEmpty() || !look(real, &info) || !S_ISDIR(info.st_mode))
        return fail(error, QStringLiteral("主目录 %1 不存在").arg(user.home));
    return info.st_uid == user.uid ||
           fail(error, QStringLiteral("主目录 %1 不属于该用户").arg(user.home));
}

} // namespace

VaultUsers::VaultUsers(const Options &options, OnOpened onOpened)
    : m_options(options)
    , m_onOpened(std::move(onOpened))
{}

bool VaultUsers::start(QString *error)
{
    if (isSingle())
        return open(UserIdentity::ofProcess(), {m_options.vaultParent, m_options.stateDir},
                    error) != nullptr;
    // Who looks into it learns who has which settings.
    const QByteArray users = QFile::encodeName(m_options.stateDir + QStringLiteral("/users"));
    if (!QDir().mkpath(m_options.stateDir) ||
        ::chmod(QFile::encodeName(m_options.stateDir).constData(), 0700) != 0 ||
        (::mkdir(users.constData(), 0700) != 0 && errno != EEXIST))
        return fail(error, QStringLiteral("无法创建 %1").arg(m_options.stateDir));
    openEnabled();
    return true;
}

void VaultUsers::openEnabled()
{
    if (isSingle())
        return;
    const QVector<uid_t> uids = enabledUids();
    for (const uid_t uid : uids) {
        QString error;
        if (!of(uid, &error))
            qWarning() << "[VaultUsers] no vault for user" << uid << error;
    }
}

UserVault *VaultUsers::of(uid_t uid, QString *error)
{
    if (UserVault *const vault = opened(uid))
        return vault;
    UserIdentity user;
    if (!UserIdentity::find(uid, &user, error) || !isUsableHome(user, error))
        return nullptr;
    return open(user, {user.home, stateDirOf(uid)}, error);
}

UserVault *VaultUsers::opened(uid_t uid) const
{
    const auto found = m_vaults.find(keyOf(uid));
    return found != m_vaults.end() ? found->second.get() : nullptr;
}

QVector<UserVault *> VaultUsers::all() const
{
    QVector<UserVault *> vaults;
    for (const auto &entry : m_vaults)
        vaults.append(entry.second.get());
    return vaults;
}

bool VaultUsers::isAnyEnabled() const
{
    const QVector<UserVault *> vaults = all();
    return std::any_of(vaults.begin(), vaults.end(),
                       [](UserVault *vault) { return vault->settings().isEnabled(); }) ||
           (!isSingle() && !enabledUids().isEmpty());
}

UserVault *VaultUsers::open(const UserIdentity &user, const UserVault::Place &place, QString *error)
{
    auto vault =
        std::make_unique<UserVault>(user, place, m_options.environment, m_options.checkIntervalMs);
    if (!vault->start(error))
        return nullptr;
    UserVault *const opened = vault.get();
    m_vaults[keyOf(user.uid)] = std::move(vault);
    m_onOpened(opened);
    return opened;
}

QString VaultUsers::stateDirOf(uid_t uid) const
{
    return isSingle() ? m_options.stateDir
                      : m_options.stateDir + QStringLiteral("/users/%1").arg(uid);
}

QVector<uid_t> VaultUsers::enabledUids() const
{
    QVector<uid_t> uids;
    const QStringList names =
        QDir(m_options.stateDir + QStringLiteral("/users")).entryList(QDir::Dirs);
    for (const QString &name : names) {
        bool isNumber = false;
        const uid_t uid = name.toUInt(&isNumber);
        if (!isNumber || name != QString::number(uid))
            continue;
        UserSettings settings(QStringLiteral("/"), stateDirOf(uid));
        settings.load();
        if (settings.isEnabled())
            uids.append(uid);
    }
    return uids;
}

/// The single vault is everybody's who may connect.
uid_t VaultUsers::keyOf(uid_t uid) const
{
    return isSingle() ? ::geteuid() : uid;
}

} // namespace services::vaultd
