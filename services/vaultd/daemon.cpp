#include "vaultd/daemon.h"

#include "common/requestlog.h"
#include "vaultd/failure.h"
#include "vaultd/passwords.h"
#include "vaultd/rights/pamcheck.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace services {
namespace vaultd {

namespace {

constexpr int kReopenMs = 30 * 1000;

PasswordCheck passwordCheck(const Daemon::Options &options, QObject *owner)
{
    if (options.passwordFile.isEmpty())
        return pamCheck(options.program, owner);
    const QString file = options.passwordFile;
    return [file](const QString &user, const QString &password,
                  const std::function<void(bool)> &done) {
        done(Passwords(file).check(user, password));
    };
}

Authenticator::IsOwnAccount ownAccount(const Daemon::Options &options)
{
    if (options.passwordFile.isEmpty())
        return isAccountOf;
    return [](const QString &, const Peer &) {
        return true;
    };
}

VaultUsers::Options usersOf(const Daemon::Options &options)
{
    VaultUsers::Options users;
    users.vaultParent = options.vaultParent;
    users.stateDir = options.stateDir;
    return users;
}

UserProtection protectionOf(const UserVault &vault)
{
    const VaultConfig &config = vault.settings().config();
    UserProtection protection;
    protection.uid = vault.user().uid;
    protection.gid = vault.user().gid;
    protection.home = QFile::encodeName(vault.parent());
    protection.isEnabled = true;
    QSet<dev_t> devices;
    const auto addSpool = [&protection, &devices](const QString &folder) {
        struct stat info;
        // Whoever owns the folder could take the spool away.
        if (::stat(QFile::encodeName(folder).constData(), &info) != 0 ||
            info.st_uid != protection.uid || devices.contains(info.st_dev))
            return;
        devices.insert(info.st_dev);
        protection.spoolDirs.append(QFile::encodeName(folder) + "/.morvane_spool");
    };
    addSpool(vault.parent());
    for (const QString &dir : config.protectedDirs) {
        protection.directories.append(QFile::encodeName(dir));
        addSpool(dir);
    }
    for (const QString &extension : config.protectedExtensions)
        protection.extensions.append(extension.toUtf8());
    for (const QString &dir : config.excludedDirs)
        protection.leftOutDirectories.append(QFile::encodeName(dir));
    protection.leftOutDirectories.append(QFile::encodeName(vault.layout().root()));
    // Other file systems have vaults of their own.
    protection.leftOutNames = {QByteArray(vault::kVaultDir)};
    for (const QString &name : config.excludedNames)
        protection.leftOutNames.append(QFile::encodeName(name));
    return protection;
}

Protection::Options deploymentOf(const Daemon::Options &options)
{
    return {options.hookEntry, options.preloadList, options.stateDir};
}

} // namespace

Daemon::Daemon(const Options &options)
    : m_options(options)
    , m_users(usersOf(options), [this](UserVault *vault) { onOpened(vault); })
    , m_protection(deploymentOf(options),
                   {[this](const UserVault &vault, QString *error) {
                        return m_hook->openFor(protectionOf(vault), error);
                    },
                    [this](uid_t uid) {
                        m_hook->close(uid);
                    }},
                   m_users)
    , m_authenticator(passwordCheck(options, &m_host), ownAccount(options), Authenticator::Rules())
    , m_settings(m_host, m_users, m_protection)
    , m_system(m_host, options.stateDir)
    , m_files(m_host, m_users, m_authenticator)
{
    m_host.handle(QStringLiteral("vault.authenticate"),
                  ServiceHost::RequestHandler(
                      [this](const Request &request, const ServiceHost::Respond &respond) {
                          m_authenticator.authenticate(request, respond);
                      }));
    m_reopen.setInterval(kReopenMs);
    QObject::connect(&m_reopen, &QTimer::timeout, &m_host, [this] { m_users.openEnabled(); });
}

Daemon::~Daemon()
{
    // Its threads use the keepers of the vaults.
    m_hook.reset();
}

bool Daemon::start(QString *error)
{
    if (m_users.isSingle() && !QFileInfo(m_options.vaultParent).isDir())
        return fail(error, QStringLiteral("保护区的上级目录不存在：%1").arg(m_options.vaultParent));
    if (!m_users.isSingle() && ::geteuid() != 0)
        return fail(error, QStringLiteral("为所有用户服务须以 root 身份运行"));
    // The socket first: a second service on the same name must not touch the first one's state.
    logRequestsToJournal(&m_host);
    if (!listen(error))
        return false;
    if (!QDir().mkpath(m_options.stateDir))
        return fail(error, QStringLiteral("无法创建 %1").arg(m_options.stateDir));
    if (!startHook(error))
        return false;
    if (m_hook)
        m_hook->beginOpening();
    if (!m_users.start(error) || (m_hook && !m_hook->finishOpening(error)))
        return false;
    m_protection.start();
    m_system.start();
    m_reopen.start();
    return true;
}

bool Daemon::listen(QString *error)
{
    if (m_users.isSingle())
        return m_host.listen(m_options.socketName, error);
    const QString folder = QFileInfo(m_options.socketName).absolutePath();
    struct stat info;
    if (::mkdir(QFile::encodeName(folder).constData(), 0755) != 0 && errno != EEXIST)
        return fail(error, QStringLiteral("无法创建 %1").arg(folder), errno);
    if (!look(folder, &info) || !S_ISDIR(info.st_mode) || info.st_uid != 0 ||
        (info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return fail(error, QStringLiteral("%1 可被他人写入，不予采用").arg(folder));
    m_host.setAccess(SocketAccess::Everyone);
    if (!m_host.listen(m_options.socketName, error))
        return false;
    linkFormerName();
    return true;
}

/// Programs of before look in the temporary folder. Whoever has taken the name there keeps it.
void Daemon::linkFormerName() const
{
    const QString name = QFileInfo(m_options.socketName).fileName();
    const QByteArray link = QFile::encodeName(QDir::temp().filePath(name));
    const QByteArray target = QFile::encodeName(m_options.socketName);
    struct stat info;
    const bool isOwn = ::lstat(link.constData(), &info) == 0 && info.st_uid == 0;
    if (isOwn && (S_ISLNK(info.st_mode) || S_ISSOCK(info.st_mode)))
        ::unlink(link.constData());
    if (::symlink(target.constData(), link.constData()) != 0)
        qWarning() << "[Daemon] not reachable as" << link << "which is taken";
}

bool Daemon::startHook(QString *error)
{
    if (m_options.hookEntry.isEmpty())
        return true;
    m_hook = std::make_unique<HookService>(m_options.hookFolder, [this](uid_t owner) {
        const std::lock_guard<std::mutex> lock(m_keepersMutex);
        return m_keepers.value(owner);
    });
    return m_hook->start(error);
}

/// Each user hears of the own files only.
ServiceHost::PeerFilter Daemon::ownerOf(const UserVault &vault) const
{
    const uid_t uid = vault.user().uid;
    return m_users.isSingle() ? ServiceHost::PeerFilter() : [uid](const Peer &peer) {
        return peer.uid == uid;
    };
}

void Daemon::onOpened(UserVault *vault)
{
    {
        const std::lock_guard<std::mutex> lock(m_keepersMutex);
        m_keepers.insert(vault->user().uid, vault->thread().keeper());
    }
    m_protection.apply(vault);
    QObject::connect(
        vault, &UserVault::filesChanged, &m_host,
        [this, vault](const VaultChanges &changes) { onFilesChanged(*vault, changes); });
    QObject::connect(vault, &UserVault::spaceShort, &m_host,
                     [this, vault](qint64 usedBytes, qint64 maxBytes) {
                         m_host.broadcast(QStringLiteral("vault.spaceWarning"),
                                          {{QStringLiteral("usedBytes"), usedBytes},
                                           {QStringLiteral("maxBytes"), maxBytes}},
                                          ownerOf(*vault));
                     });
}

void Daemon::onFilesChanged(const UserVault &vault, const VaultChanges &changes)
{
    for (const VaultFile &file : changes.added)
        if (!HookProbe::isProbe(file.fileName))
            m_host.broadcast(QStringLiteral("vault.fileProtected"),
                             {{QStringLiteral("file"), file.toJson()}}, ownerOf(vault));
    for (const QString &id : changes.expired)
        m_host.broadcast(QStringLiteral("vault.fileExpired"), {{QStringLiteral("fileId"), id}},
                         ownerOf(vault));
}

} // namespace vaultd
} // namespace services
