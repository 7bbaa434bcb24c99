#pragma once

#include "core/appmode.h"
#include "core/controllers/upgrade/devicestrings.h"
#include "core/controllers/upgrade/upgradestate.h"
#include "core/controllers/upgrade/upgradestatestore.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>

class QNetworkAccessManager;

namespace core {
namespace ipc {
class IpcClient;
}
namespace controllers {
namespace upgrade {

class UpgradeApiClient;

/// What an UpgradeController takes from its surroundings; empty fields mean the real ones.
struct UpgradeEnvironment
{
    QString statePath;
    QString cacheDir;
    QUrl updateServer;
    QString vaultService = QStringLiteral("morvane-vault-v1");
    QStringList agentCandidates; ///< Empty: upgradeAgentCandidates().
    int stallTimeoutMs = 60000;  ///< A download that brings nothing for so long has failed.
    std::function<DeviceStrings()> deviceStrings;
    std::function<bool(const QUrl &)> openUrl;
};

/// Decides what the update server's answer means for this installation, keeps the decision, and
/// carries an update out: through the update agent, or else by fetching and verifying the package
/// itself and asking the vault service to install it. GUI thread, asynchronous; installing blocks
/// for at most 1.5 s while it connects. Callbacks come once, with a text for the user.
class UpgradeController : public QObject
{
    Q_OBJECT

public:
    using Callback = std::function<void(bool ok, const QString &message)>;

    explicit UpgradeController(AppMode mode, QObject *parent = nullptr,
                               const UpgradeEnvironment &environment = UpgradeEnvironment());

    QString currentVersion() const { return m_state.currentVersion; }
    QString latestVersion() const { return m_state.latestVersion; }
    QString architecture() const { return m_state.arch; }
    QString statusText() const;
    QString lastCheckText() const;
    QDateTime lastCheckAt() const { return m_state.lastCheckAt; } ///< UTC.
    bool updateAvailable() const { return m_state.updateAvailable; }
    bool forceUpdate() const { return m_state.forceUpdate; }
    QString downloadPageUrl() const { return m_state.downloadPageUrl; }
    UpgradeState state() const { return m_state; }

    QString normalizedMode() const;
    /// False in the recovery environment, where updates go through the download page.
    bool canAutoUpgrade() const { return m_mode == AppMode::normal; }
    bool shouldUseBrowserDownload() const { return !canAutoUpgrade(); }
    bool isCheckingTooSoon() const;
    bool isForceUpdateRequired() const;
    /// Whether the package for the latest version has been fetched; its path through `path`.
    bool hasUsableDownloadedPackage(QString *path = nullptr) const;

    /// Checks unless that was done within the day; a pending mandatory update is looked at again in
    /// any case. True if a check was started.
    bool startupCheck();
    void manualCheck(const Callback &callback = Callback());
    void runCheck(bool manual, const Callback &callback = Callback());
    void openDownloadPage(const Callback &callback = Callback());
    /// On success the caller ends the program.
    void startImmediateUpdate(const Callback &callback = Callback());
    void startForcedUpdate(const Callback &callback = Callback());
    /// Fetches nothing if the package lies in the cache already.
    void downloadPackage(const Callback &callback = Callback());
    /// `path` must hold a verified package.
    void installDownloadedPackage(const QString &path, const Callback &callback = Callback());

    /// Version and architecture of the running program, into the state.
    void updateCurrentVersionFields();

signals:
    void stateChanged();
    void checkStarted();
    void checkFinished(bool ok, const QString &message);
    void installStarted();
    void installFinished(bool ok, const QString &message);
    /// `busy`: without measure.
    void updateStageChanged(const QString &text, bool busy);
    void downloadProgressChanged(qint64 received, qint64 total);

private:
    void finishCheck(bool ok, const QJsonObject &payload, const QString &failure,
                     const Callback &callback);
    void openKnownDownloadPage(const Callback &callback);
    void updateInProcess(const Callback &callback);
    /// A package that lies there is hashed again, off this thread, since the disk may have changed
    /// below it; one that does not match is fetched anew.
    void installAfterVerifying(const QString &path, const Callback &callback);
    /// Where the package of the latest version belongs; empty if the version names no file.
    QString packageTarget() const;
    QString refusalToDownload() const;
    void fetchPackage(const Callback &callback);
    void onPackageVerified(const DownloadedPackageState &package, const Callback &callback);
    void failInstall(const QString &message, const Callback &callback);
    void beginInstall();
    void persist() const;

    AppMode m_mode;
    UpgradeStateStore m_store;
    QString m_cacheDir;
    QStringList m_agentCandidates;
    int m_stallTimeoutMs;
    std::function<bool(const QUrl &)> m_openUrl;
    DeviceStrings m_device;
    UpgradeState m_state;
    UpgradeApiClient *m_api;
    ipc::IpcClient *m_vaultClient;
    QNetworkAccessManager *m_network;
    bool m_checking = false;
    bool m_installing = false;
};

} // namespace upgrade
} // namespace controllers
} // namespace core
