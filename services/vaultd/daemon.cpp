#include "vaultd/daemon.h"

#include "common/params.h"
#include "vaultd/expiry.h"
#include "vaultd/failure.h"
#include "vaultd/passwords.h"

#include <QDir>
#include <QFileInfo>

namespace services {
namespace vaultd {

namespace {
constexpr int kNoticeDelayMs = 50;
} // namespace

Daemon::Daemon(const Options &options)
    : m_options(options)
    , m_layout(options.vaultParent)
    , m_settings(
          m_host, options.vaultParent, options.stateDir,
          [this](bool isEnabled) {
              return hookState(m_options.hookLibrary, m_options.preloadList).deployMode(isEnabled);
          },
          [this] {
              warnOfSpace();
              m_vault.refresh(m_settings.config());
          })
    , m_system(m_host, options.stateDir)
    , m_vault(m_layout, options.stateDir, options.environment,
              [this](const VaultChanges &changes) { onChanges(changes); })
    , m_files(m_host, m_layout, m_index, m_vault)
{
    registerMethods();
    m_noticed.setSingleShot(true);
    m_noticed.setInterval(kNoticeDelayMs);
    m_check.setInterval(options.checkIntervalMs);
    const auto look = [this] {
        watch();
        m_vault.refresh(m_settings.config());
    };
    QObject::connect(&m_noticed, &QTimer::timeout, &m_host, look);
    QObject::connect(&m_check, &QTimer::timeout, &m_host, look);
    QObject::connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_noticed, [this] {
        if (!m_noticed.isActive())
            m_noticed.start();
    });
}

bool Daemon::start(QString *error)
{
    if (!QFileInfo(m_options.vaultParent).isDir())
        return fail(error, QStringLiteral("保护区的上级目录不存在：%1").arg(m_options.vaultParent));
    // The socket first: a second service on the same name must not touch the first one's state.
    if (!m_host.listen(m_options.socketName, error))
        return false;
    if (!QDir().mkpath(m_options.stateDir))
        return fail(error, QStringLiteral("无法创建 %1").arg(m_options.stateDir));
    m_settings.load();
    if (!m_vault.start(error))
        return false;
    if (!m_index.open(m_options.stateDir))
        return fail(error, QStringLiteral("无法读取索引"));
    m_vault.protect(m_settings.config(), m_settings.isEnabled());
    // After the folders are there, and before the look that finds what came until now.
    watch();
    m_vault.refresh(m_settings.config());
    m_check.start();
    return true;
}

/// A folder that was replaced has fallen out of the watch.
void Daemon::watch()
{
    if (!m_watcher.directories().contains(m_layout.meta()) && QFileInfo::exists(m_layout.meta()) &&
        !m_watcher.addPath(m_layout.meta()))
        qWarning() << "[Daemon] cannot watch" << m_layout.meta();
}

void Daemon::registerMethods()
{
    m_host.handle(QStringLiteral("vault.getStatus"),
                  [this](const QJsonObject &) { return Reply::ok(status()); });
    m_host.handle(QStringLiteral("vault.getDeployMode"), [this](const QJsonObject &) {
        const QString key = QStringLiteral("deployMode");
        return Reply::ok({{key, status().value(key)}});
    });
    m_host.handle(QStringLiteral("vault.authenticate"),
                  [this](const QJsonObject &params) { return authenticate(params); });
}

QJsonObject Daemon::status() const
{
    const HookState hook = hookState(m_options.hookLibrary, m_options.preloadList);
    return {{QStringLiteral("running"), true},
            {QStringLiteral("enabled"), m_settings.isEnabled()},
            {QStringLiteral("preloadActive"), hook.preloadActive},
            {QStringLiteral("soFileExists"), hook.soFileExists},
            {QStringLiteral("needReboot"), false},
            {QStringLiteral("protectedFileCount"), m_index.count()},
            {QStringLiteral("usedSpaceBytes"), m_index.usedBytes()},
            {QStringLiteral("deployMode"), hook.deployMode(m_settings.isEnabled())}};
}

Reply Daemon::authenticate(const QJsonObject &params) const
{
    const QJsonValue user = params.value(QLatin1String("username"));
    const QJsonValue password = params.value(QLatin1String("password"));
    if (!user.isString())
        return badParam(QStringLiteral("username"));
    if (!password.isString())
        return badParam(QStringLiteral("password"));
    QString message;
    if (m_options.passwordFile.isEmpty())
        message = QStringLiteral("服务没有密码文件，无法验证");
    else if (!Passwords(m_options.passwordFile).check(user.toString(), password.toString()))
        message = QStringLiteral("用户名或密码错误");
    return Reply::ok(
        {{QStringLiteral("success"), message.isEmpty()}, {QStringLiteral("message"), message}});
}

void Daemon::onChanges(const VaultChanges &changes)
{
    m_index.apply(changes);
    for (const VaultFile &file : changes.added)
        m_host.broadcast(QStringLiteral("vault.fileProtected"),
                         {{QStringLiteral("file"), file.toJson()}});
    for (const QString &id : changes.expired)
        m_host.broadcast(QStringLiteral("vault.fileExpired"), {{QStringLiteral("fileId"), id}});
    if (!changes.added.isEmpty())
        warnOfSpace();
}

void Daemon::warnOfSpace()
{
    const qint64 limit = m_settings.config().maxSpaceBytes;
    if (isSpaceShort(m_index.usedBytes(), limit))
        m_host.broadcast(QStringLiteral("vault.spaceWarning"),
                         {{QStringLiteral("usedBytes"), m_index.usedBytes()},
                          {QStringLiteral("maxBytes"), limit}});
}

} // namespace vaultd
} // namespace services
