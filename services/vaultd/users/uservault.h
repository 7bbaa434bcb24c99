#pragma once

#include "vaultd/fileindex.h"
#include "vaultd/users/useridentity.h"
#include "vaultd/users/usersettings.h"
#include "vaultd/vaultthread.h"

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

namespace services::vaultd {

/// The vault of one user with the user's settings and the list of what it holds. Lives on the
/// service's thread; the work on files is done by a thread of its own.
class UserVault : public QObject
{
    Q_OBJECT

public:
    struct Place
    {
        QString parent;   ///< An existing folder; the vault stands in it.
        QString stateDir; ///< Made if missing; the service's alone.
    };

    UserVault(const UserIdentity &user, const Place &place,
              const VaultThread::Environment &environment, int checkIntervalMs);
    ~UserVault() override;

    /// Opens the vault and reads settings and list. Without it, nothing else may be called.
    [[nodiscard]] bool start(QString *error);
    /// Looks for what others have changed and removes what exceeds the limits.
    void refresh();
    /// Keeps the configuration and applies it.
    [[nodiscard]] bool setConfig(const VaultConfig &config, QString *error);
    [[nodiscard]] bool setEnabled(bool isEnabled, QString *error);

    const UserIdentity &user() const { return m_user; }
    const UserSettings &settings() const { return m_settings; }
    const FileIndex &index() const { return m_index; }
    const VaultLayout &layout() const { return m_layout; }
    const QString &parent() const { return m_place.parent; }
    VaultThread &thread() { return m_thread; }
    const VaultThread &thread() const { return m_thread; }

signals:
    void filesChanged(const services::vaultd::VaultChanges &changes);
    /// The limit is near; both in bytes.
    void spaceShort(qint64 usedBytes, qint64 maxBytes);

private:
    void watch();
    void onChanges(const VaultChanges &changes);
    void warnOfSpace();

    UserIdentity m_user;
    Place m_place;
    VaultLayout m_layout;
    UserSettings m_settings;
    FileIndex m_index;
    QFileSystemWatcher m_watcher;
    QTimer m_noticed; ///< Lets several changes of the folder pass as one.
    QTimer m_check;
    VaultThread m_thread;
};

} // namespace services::vaultd
