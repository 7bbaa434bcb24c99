#include "vaultd/users/uservault.h"

#include "vaultd/expiry.h"
#include "vaultd/failure.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>

namespace services::vaultd {

namespace {
constexpr int kNoticeDelayMs = 50;
} // namespace

UserVault::UserVault(const UserIdentity &user, const Place &place,
                     const VaultThread::Environment &environment, int checkIntervalMs)
    : m_user(user)
    , m_place(place)
    , m_layout(place.parent, user.uid)
    , m_settings(place.parent, place.stateDir)
    , m_thread(m_layout, place.stateDir, environment,
               [this](const VaultChanges &changes) { onChanges(changes); })
{
    m_noticed.setSingleShot(true);
    m_noticed.setInterval(kNoticeDelayMs);
    m_check.setInterval(checkIntervalMs);
    const auto look = [this] {
        watch();
        refresh();
    };
    connect(&m_noticed, &QTimer::timeout, this, look);
    connect(&m_check, &QTimer::timeout, this, look);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_noticed, [this] {
        if (!m_noticed.isActive())
            m_noticed.start();
    });
}

UserVault::~UserVault() = default;

bool UserVault::start(QString *error)
{
    if (!QFileInfo(m_place.parent).isDir())
        return fail(error, QStringLiteral("保护区的上级目录不存在：%1").arg(m_place.parent));
    if (!QDir().mkpath(m_place.stateDir))
        return fail(error, QStringLiteral("无法创建 %1").arg(m_place.stateDir));
    m_settings.load();
    if (!m_thread.start(error))
        return false;
    if (!m_index.open(m_place.stateDir))
        return fail(error, QStringLiteral("无法读取保护区的索引"));
    m_thread.protect(m_settings.config(), m_settings.isEnabled());
    // After the folders are there, and before the look that finds what came until now.
    watch();
    refresh();
    m_check.start();
    return true;
}

void UserVault::refresh()
{
    m_thread.refresh(m_settings.config());
}

bool UserVault::setConfig(const VaultConfig &config, QString *error)
{
    if (!m_settings.setConfig(config, error))
        return false;
    m_thread.protect(config, m_settings.isEnabled());
    warnOfSpace();
    refresh();
    return true;
}

bool UserVault::setEnabled(bool isEnabled, QString *error)
{
    if (!m_settings.setEnabled(isEnabled, error))
        return false;
    m_thread.protect(m_settings.config(), isEnabled);
    return true;
}

/// A folder that was replaced has fallen out of the watch. In another user's vault nobody but this
/// process can change anything.
void UserVault::watch()
{
    if (!m_layout.dir() && !m_watcher.directories().contains(m_layout.meta()) &&
        QFileInfo::exists(m_layout.meta()) && !m_watcher.addPath(m_layout.meta()))
        qWarning() << "[UserVault] cannot watch" << m_layout.meta();
}

void UserVault::onChanges(const VaultChanges &changes)
{
    m_index.apply(changes);
    emit filesChanged(changes);
    if (!changes.added.isEmpty())
        warnOfSpace();
}

void UserVault::warnOfSpace()
{
    const qint64 limit = m_settings.config().maxSpaceBytes;
    if (isSpaceShort(m_index.usedBytes(), limit))
        emit spaceShort(m_index.usedBytes(), limit);
}

} // namespace services::vaultd
