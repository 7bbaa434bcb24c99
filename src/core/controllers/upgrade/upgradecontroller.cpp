#include "core/controllers/upgrade/upgradecontroller.h"

#include "core/controllers/upgrade/packagedownload.h"
#include "core/controllers/upgrade/packageinstall.h"
#include "core/controllers/upgrade/upgradeagent.h"
#include "core/controllers/upgrade/upgradeapiclient.h"
#include "core/controllers/upgrade/upgraderules.h"
#include "core/ipc/ipcclient.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDesktopServices>
#include <QFile>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QNetworkAccessManager>
#include <QSysInfo>
#include <QtConcurrent>

namespace core {
namespace controllers {
namespace upgrade {

namespace {

constexpr int kConnectTimeoutMs = 1500;

QString word(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString upToDateText()
{
    return QStringLiteral("当前已经是最新版本。");
}

QString inProgressText()
{
    return QStringLiteral("更新任务正在进行中，请稍候。");
}

QString machineArchitecture()
{
    return normalizeArchitecture(QSysInfo::currentCpuArchitecture());
}

void answer(const UpgradeController::Callback &callback, bool ok, const QString &message)
{
    if (callback)
        callback(ok, message);
}

} // namespace

UpgradeController::UpgradeController(AppMode mode, QObject *parent,
                                     const UpgradeEnvironment &environment)
    : QObject(parent)
    , m_mode(mode)
    , m_store(environment.statePath)
    , m_cacheDir(environment.cacheDir.isEmpty() ? UpgradeStateStore::defaultCacheDir()
                                                : environment.cacheDir)
    , m_agentCandidates(environment.agentCandidates.isEmpty() ? upgradeAgentCandidates()
                                                              : environment.agentCandidates)
    , m_stallTimeoutMs(environment.stallTimeoutMs)
    , m_openUrl(environment.openUrl ? environment.openUrl : &QDesktopServices::openUrl)
    , m_device(environment.deviceStrings ? environment.deviceStrings() : readDeviceStrings())
    , m_state(m_store.load())
    , m_api(new UpgradeApiClient(this))
    , m_vaultClient(new ipc::IpcClient(environment.vaultService, this))
    , m_network(new QNetworkAccessManager(this))
{
    if (!environment.updateServer.isEmpty())
        m_api->setBaseUrl(environment.updateServer);
    updateCurrentVersionFields();
    // The update that the last run heard of may be the one that runs now.
    dropUpdateNotNewer(&m_state);
}

void UpgradeController::updateCurrentVersionFields()
{
    const QString version = QCoreApplication::applicationVersion().trimmed();
    m_state.currentVersion = version.isEmpty() ? QStringLiteral("0.1.0") : version;
    m_state.arch = machineArchitecture();
}

QString UpgradeController::normalizedMode() const
{
    return m_mode == AppMode::livecd ? QStringLiteral("livecd") : QStringLiteral("normal");
}

QString UpgradeController::statusText() const
{
    if (m_installing)
        return QStringLiteral("正在下载安装更新");
    if (m_checking)
        return QStringLiteral("正在检查更新");
    if (!m_state.lastCheckAt.isValid())
        return QStringLiteral("尚未检查更新");
    if (!m_state.lastCheckSuccess)
        return QStringLiteral("最近一次检查失败");
    if (m_state.updateAvailable)
        return QStringLiteral("发现新版本 %1").arg(m_state.latestVersion);
    return QStringLiteral("当前已是最新版本");
}

QString UpgradeController::lastCheckText() const
{
    return m_state.lastCheckAt.isValid()
               ? m_state.lastCheckAt.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm"))
               : QStringLiteral("从未");
}

bool UpgradeController::isCheckingTooSoon() const
{
    return upgrade::isCheckingTooSoon(m_state, QDateTime::currentDateTimeUtc());
}

bool UpgradeController::isForceUpdateRequired() const
{
    return canAutoUpgrade() && isMandatory(m_state);
}

bool UpgradeController::hasUsableDownloadedPackage(QString *path) const
{
    const QString usable = usablePackagePath(m_state);
    if (path && !usable.isEmpty())
        *path = usable;
    return !usable.isEmpty();
}

void UpgradeController::persist() const
{
    if (!m_store.save(m_state))
        qWarning().noquote() << "[UpgradeController] state not saved:" << m_store.path();
}

bool UpgradeController::startupCheck()
{
    const bool tooSoon = isCheckingTooSoon();
    qInfo().noquote() << QStringLiteral("Upgrade startupCheck begin: currentVersion=%1 "
                                        "latestVersion=%2 arch=%3 lastCheckValid=%4 "
                                        "updateAvailable=%5 forceUpdate=%6 checkingTooSoon=%7")
                             .arg(m_state.currentVersion, m_state.latestVersion, m_state.arch,
                                  word(m_state.lastCheckAt.isValid()),
                                  word(m_state.updateAvailable), word(m_state.forceUpdate),
                                  word(tooSoon));
    if (tooSoon && !(m_state.updateAvailable && m_state.forceUpdate)) {
        const QDateTime &last = m_state.lastCheckAt;
        qInfo().noquote() << QStringLiteral(
                                 "Upgrade startupCheck skipped: reason=too_soon lastCheckAt=%1")
                                 .arg(last.isValid() ? last.toString(Qt::ISODate)
                                                     : QStringLiteral("<invalid>"));
        return false;
    }
    runCheck(false);
    return true;
}

void UpgradeController::manualCheck(const Callback &callback)
{
    runCheck(true, callback);
}

void UpgradeController::runCheck(bool manual, const Callback &callback)
{
    const QString fingerprint = m_device.fingerprint.trimmed();
    const QString osInfo = m_device.osInfo.trimmed();
    const QString cpuModel = m_device.cpuModel.trimmed();
    qInfo().noquote() << QStringLiteral("Upgrade runCheck start: manual=%1 inProgress=%2 "
                                        "currentVersion=%3 arch=%4 mode=%5 canAutoUpgrade=%6 "
                                        "fingerprint=%7 hasOsInfo=%8 hasCpuModel=%9")
                             .arg(word(manual), word(m_checking), m_state.currentVersion,
                                  m_state.arch, normalizedMode(), word(canAutoUpgrade()),
                                  fingerprint, word(!osInfo.isEmpty()), word(!cpuModel.isEmpty()));
    if (m_checking) {
        qInfo("Upgrade runCheck ignored: reason=already_in_progress");
        answer(callback, false, QStringLiteral("正在检查更新，请稍候。"));
        return;
    }
    m_checking = true;
    emit checkStarted();
    emit stateChanged();
    m_api->checkForUpdate(
        m_state.currentVersion, m_state.arch, normalizedMode(), fingerprint, osInfo, cpuModel,
        [this, callback](bool ok, const QJsonObject &payload,
                         const UpgradeApiClient::ApiError &error) {
            finishCheck(ok && isCheckAnswer(payload), payload, error.reason, callback);
        });
}

void UpgradeController::finishCheck(bool ok, const QJsonObject &payload, const QString &failure,
                                    const Callback &callback)
{
    m_checking = false;
    m_state.lastCheckAt = QDateTime::currentDateTimeUtc();
    m_state.lastCheckSuccess = ok;
    QString message = failure.isEmpty() ? QStringLiteral("检查更新失败。") : failure;
    if (ok) {
        applyCheckResponse(&m_state, payload);
        qInfo().noquote() << QStringLiteral("Upgrade runCheck success: latestVersion=%1 "
                                            "updateAvailable=%2 forceUpdate=%3 packageUrlEmpty=%4")
                                 .arg(m_state.latestVersion, word(m_state.updateAvailable),
                                      word(m_state.forceUpdate),
                                      word(m_state.packageUrl.isEmpty()));
        message = m_state.updateAvailable
                      ? QStringLiteral("发现新版本 %1。").arg(m_state.latestVersion)
                      : upToDateText();
    }
    emit stateChanged();
    persist();
    emit checkFinished(ok, message);
    answer(callback, ok, message);
}

void UpgradeController::openDownloadPage(const Callback &callback)
{
    if (!m_state.downloadPageUrl.isEmpty()) {
        openKnownDownloadPage(callback);
        return;
    }
    runCheck(true, [this, callback](bool, const QString &) { openKnownDownloadPage(callback); });
}

void UpgradeController::openKnownDownloadPage(const Callback &callback)
{
    const QUrl url(m_state.downloadPageUrl, QUrl::StrictMode);
    // The address comes from outside: nothing but a web page is opened.
    const bool isWeb =
        url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http");
    if (m_state.downloadPageUrl.isEmpty() || !isWeb)
        answer(callback, false, QStringLiteral("服务端未返回有效的下载页面地址。"));
    else if (m_openUrl(url))
        answer(callback, true, QStringLiteral("已在浏览器中打开更新下载页。"));
    else
        answer(callback, false, QStringLiteral("无法打开更新下载页。"));
}

void UpgradeController::startForcedUpdate(const Callback &callback)
{
    if (!isForceUpdateRequired()) {
        answer(callback, false, QStringLiteral("当前不满足强制更新条件。"));
        return;
    }
    persist();
    emit updateStageChanged(QStringLiteral("正在下载更新包..."), false);
    emit downloadProgressChanged(0, 0);
    startImmediateUpdate(callback);
}

void UpgradeController::startImmediateUpdate(const Callback &callback)
{
    if (!canAutoUpgrade()) {
        answer(callback, false, QStringLiteral("当前客户端不支持自动更新。"));
        return;
    }
    if (m_installing) {
        answer(callback, false, inProgressText());
        return;
    }
    QString session;
    QString error;
    if (launchUpgradeAgent(m_agentCandidates, false, true, &session, &error)) {
        qInfo().noquote() << QStringLiteral("Upgrade immediate update handed off to upgrade agent: "
                                            "session=%1")
                                 .arg(session);
        answer(callback, true, QStringLiteral("升级代理已启动，主程序即将退出。"));
        return;
    }
    qWarning().noquote() << QStringLiteral("Upgrade immediate update agent launch failed, falling "
                                           "back to legacy path: %1")
                                .arg(error);
    updateInProcess(callback);
}

void UpgradeController::updateInProcess(const Callback &callback)
{
    QString path;
    if (hasUsableDownloadedPackage(&path)) {
        installAfterVerifying(path, callback);
        return;
    }
    if (m_state.updateAvailable) {
        downloadPackage(callback);
        return;
    }
    runCheck(true, [this, callback](bool ok, const QString &message) {
        if (m_state.updateAvailable)
            downloadPackage(callback);
        else
            answer(callback, false, ok ? upToDateText() : message);
    });
}

void UpgradeController::beginInstall()
{
    m_installing = true;
    emit installStarted();
    emit stateChanged();
}

QString UpgradeController::packageTarget() const
{
    const QString name = packageFileName(m_state.latestVersion, machineArchitecture());
    return name.isEmpty() ? QString() : m_cacheDir + QLatin1Char('/') + name;
}

void UpgradeController::installAfterVerifying(const QString &path, const Callback &callback)
{
    beginInstall();
    emit updateStageChanged(QStringLiteral("正在校验更新包..."), true);
    const DownloadedPackageState package{m_state.latestVersion, m_state.arch, path,
                                         m_state.packageMd5};
    auto *watcher = new QFutureWatcher<bool>(this);
    connect(watcher, &QFutureWatcher<bool>::finished, this, [this, watcher, package, callback] {
        watcher->deleteLater();
        if (watcher->result()) {
            onPackageVerified(package, callback);
            return;
        }
        qWarning().noquote() << "[UpgradeController] the package in the cache does not match:"
                             << package.path;
        QFile::remove(package.path);
        m_state.downloadedPackage = DownloadedPackageState();
        const QString refusal = refusalToDownload();
        if (refusal.isEmpty())
            fetchPackage(callback);
        else
            failInstall(refusal, callback);
    });
    watcher->setFuture(QtConcurrent::run(fileHasMd5, path, package.md5));
}

QString UpgradeController::refusalToDownload() const
{
    const QString refusal = downloadRefusal(m_state, machineArchitecture());
    if (!refusal.isEmpty() || !packageTarget().isEmpty())
        return refusal;
    return QStringLiteral("服务端未返回目标版本号。");
}

void UpgradeController::downloadPackage(const Callback &callback)
{
    if (m_installing) {
        answer(callback, false, inProgressText());
        return;
    }
    const QString refusal = refusalToDownload();
    if (!refusal.isEmpty()) {
        answer(callback, false, refusal);
        return;
    }
    // A package lands there only when verified; the run may have ended before it could note so.
    if (QFileInfo(packageTarget()).isFile())
        installAfterVerifying(packageTarget(), callback);
    else
        fetchPackage(callback);
}

void UpgradeController::fetchPackage(const Callback &callback)
{
    const bool underWay = m_installing;
    m_installing = true;
    emit updateStageChanged(QStringLiteral("正在下载更新包..."), false);
    emit downloadProgressChanged(0, 0);
    if (!underWay)
        beginInstall();
    // As it is now: a check during the download may bring another version.
    const DownloadedPackageState package{m_state.latestVersion, m_state.arch, packageTarget(),
                                         m_state.packageMd5};
    auto *download =
        new PackageDownload(m_network, QUrl(m_state.packageUrl), package.md5, package.path, this);
    download->setStallTimeout(m_stallTimeoutMs);
    connect(download, &PackageDownload::progress, this,
            &UpgradeController::downloadProgressChanged);
    connect(download, &PackageDownload::verifying, this,
            [this] { emit updateStageChanged(QStringLiteral("正在校验更新包..."), true); });
    connect(download, &PackageDownload::finished, this,
            [this, package, callback](bool ok, const QString &message) {
                if (ok)
                    onPackageVerified(package, callback);
                else
                    failInstall(message, callback);
            });
    download->start();
}

void UpgradeController::onPackageVerified(const DownloadedPackageState &package,
                                          const Callback &callback)
{
    m_state.downloadedPackage = package;
    persist();
    installDownloadedPackage(package.path, callback);
}

void UpgradeController::failInstall(const QString &message, const Callback &callback)
{
    m_installing = false;
    if (m_state.forceUpdate)
        m_state.lastForcedUpdateFailure = message;
    emit stateChanged();
    persist();
    emit installFinished(false, message);
    answer(callback, false, message);
}

void UpgradeController::installDownloadedPackage(const QString &path, const Callback &callback)
{
    emit updateStageChanged(QStringLiteral("正在准备安装..."), true);
    emit downloadProgressChanged(0, 0);
    if (!m_vaultClient->ensureConnected(kConnectTimeoutMs)) {
        failInstall(QStringLiteral("未连接到本地安装服务。"), callback);
        return;
    }
    const QJsonObject params = installParams(path, m_state.arch);
    logInstallRequest(params);
    emit updateStageChanged(QStringLiteral("正在启动安装程序..."), true);
    m_vaultClient->sendRequest(
        QStringLiteral("vault.installPackage"), params,
        [this, callback](bool ok, const QJsonObject &, const QJsonObject &error) {
            if (!ok) {
                const QString message = error.value(QLatin1String("message")).toString();
                failInstall(message.isEmpty() ? QStringLiteral("提交更新安装任务失败。") : message,
                            callback);
                return;
            }
            persist();
            emit updateStageChanged(QStringLiteral("更新程序已启动，应用即将退出"), true);
            const QString message =
                QStringLiteral("更新安装任务已提交，应用将退出，请稍候完成系统安装。");
            emit installFinished(true, message);
            answer(callback, true, message);
        });
}

} // namespace upgrade
} // namespace controllers
} // namespace core
