#include "app/scanflow.h"

#include "app/laternotice.h"
#include "core/controllers/recoverycontroller.h"
#include "core/controllers/scancontroller.h"
#include "core/controllers/scanparams.h"
#include "core/controllers/workstatus.h"
#include "core/ipc/ipcclient.h"
#include "core/jsonnumber.h"
#include "ui/common/appnoticedialog.h"
#include "ui/pages/partitionselectpage.h"
#include "ui/pages/partitionselectpage/partitioncardwidget.h"
#include "ui/pages/recoveryworkflowwindow.h"
#include "ui/pages/scanresultspage.h"

#include <QPointer>

using core::controllers::RecoveryController;
using core::controllers::ScanController;
using core::controllers::WorkStatus;
using core::ipc::IpcClient;
using ui::common::AppNoticeDialog;

namespace {

QString cannotStart()
{
    return QStringLiteral("无法开始扫描");
}

QString noPartition()
{
    return QStringLiteral("当前没有可用于恢复的 EXT4 分区。");
}

} // namespace

ScanFlow::ScanFlow(const Parts &parts, QObject *parent)
    : QObject(parent)
    , m_parts(parts)
    , m_page(parts.window->scanPage())
{
    connect(m_parts.partitions, &PartitionSelectPage::requestOpenScanResults, this,
            &ScanFlow::startFromPartitionPage);
    connect(m_page, &ScanResultsPage::requestRescan, this,
            [this](const QString &device, const QString &fileSystem) {
                start(m_parts.window, device, fileSystem);
            });
    connect(m_parts.client, &IpcClient::disconnected, m_page, &ScanResultsPage::onConnectionLost);
    connect(m_parts.client, &IpcClient::connected, this, &ScanFlow::askAfterLostScan);
    wireScan();
    wireRequests();
    wireFullList();
}

bool ScanFlow::isShown(const QString &sessionId) const
{
    return !sessionId.isEmpty() && sessionId == m_page->sessionId();
}

void ScanFlow::wireScan()
{
    ScanController *scans = m_parts.scans;
    connect(scans, &ScanController::scanStarted, m_page, &ScanResultsPage::setSessionId);
    connect(scans, &ScanController::scanProgress, this,
            [this](const QString &id, double progress, int found, qint64 elapsedMs,
                   const QString &phase) {
                if (isShown(id))
                    m_page->updateProgress(progress, found, elapsedMs, phase);
            });
    connect(scans, &ScanController::filesDiscovered, this,
            [this](const QString &id, const QJsonArray &files) {
                if (isShown(id))
                    m_page->addFiles(files);
            });
    connect(scans, &ScanController::scanCompleted, this, &ScanFlow::onCompleted);
    connect(scans, &ScanController::scanStopped, this, [this](const QString &id) {
        if (!isShown(id))
            return;
        m_page->onScanStopped();
        if (m_page->missesFiles())
            fetchFullList(id);
    });
    // A start that was refused has no session yet.
    connect(scans, &ScanController::scanError, this,
            [this](const QString &id, const QString &message) {
                if (!id.isEmpty() && !isShown(id))
                    return;
                m_page->onScanError(message);
                if (!id.isEmpty() && m_page->missesFiles())
                    fetchFullList(id);
            });
}

void ScanFlow::wireRequests()
{
    ScanController *scans = m_parts.scans;
    connect(m_page, &ScanResultsPage::requestPauseScan, scans, &ScanController::pauseScan);
    connect(m_page, &ScanResultsPage::requestResumeScan, scans, &ScanController::resumeScan);
    connect(m_page, &ScanResultsPage::requestStopScan, scans, &ScanController::stopScan);

    // Queued, since the page opens a dialog: the answers come while the link reads, and no more is
    // read until their slots return.
    connect(
        scans, &ScanController::pauseRequestResult, this,
        [this](const QString &id, bool success, const QString &message) {
            if (!success && id == m_page->sessionId())
                m_page->onPauseRequestFailed(message);
        },
        Qt::QueuedConnection);
    connect(
        scans, &ScanController::resumeRequestResult, this,
        [this](const QString &id, bool success, const QString &message) {
            if (!success && id == m_page->sessionId())
                m_page->onResumeRequestFailed(message);
        },
        Qt::QueuedConnection);
    connect(
        scans, &ScanController::stopRequestResult, this,
        [this](const QString &id, bool success, const QString &message) {
            if (!success && id == m_page->sessionId())
                m_page->onStopRequestFailed(message);
        },
        Qt::QueuedConnection);
}

void ScanFlow::wireFullList()
{
    RecoveryController *recoveries = m_parts.recoveries;
    connect(recoveries, &RecoveryController::sessionFilesReceived, this, &ScanFlow::onFullList);
    connect(recoveries, &RecoveryController::sessionDetailReceived, this, &ScanFlow::resume);
    connect(recoveries, &RecoveryController::queryFailed, this, &ScanFlow::onQueryFailed);
}

void ScanFlow::askAfterLostScan()
{
    if (m_page->state() != ScanResultsPage::State::ConnectionLost)
        return;
    if (m_page->sessionId().isEmpty())
        m_page->onScanInterrupted(tr("连接断开时扫描尚未开始，可以重新扫描。"));
    else
        m_parts.recoveries->fetchSessionDetail(m_page->sessionId());
}

void ScanFlow::resume(const QString &sessionId, const QJsonObject &detail)
{
    // The same answer goes to the pages that show a session's history.
    if (!isShown(sessionId) || m_page->state() != ScanResultsPage::State::ConnectionLost)
        return;
    const WorkStatus status = core::controllers::workStatusOf(detail);
    switch (status) {
    case WorkStatus::Running:
    case WorkStatus::Paused:
        // A service need not tell a paused scan apart; it does not go on by itself, either.
        m_page->onConnectionRestored(status == WorkStatus::Paused || m_page->wasPaused(),
                                     core::toInt64(detail.value(QLatin1String("elapsedMs"))));
        return;
    case WorkStatus::Completed:
        m_page->onScanCompleted(detail.value(QLatin1String("scanSummary")).toObject());
        break;
    case WorkStatus::Stopped:
        m_page->onScanStopped();
        break;
    case WorkStatus::Failed: {
        const QString words = detail.value(QLatin1String("error")).toString();
        m_page->onScanError(words.isEmpty() ? tr("扫描异常") : words);
        break;
    }
    case WorkStatus::Interrupted:
        m_page->onScanInterrupted(
            tr("恢复服务曾经退出，扫描没有完成；已发现的文件仍可恢复，也可以重新扫描。"));
        break;
    }
    fetchFullList(sessionId);
}

void ScanFlow::onQueryFailed(const QString &method, const QString &sessionId,
                             const QString &message)
{
    if (method == QLatin1String("session.getDetail")) {
        // Without a link the next connection asks again.
        if (isShown(sessionId) && m_parts.client->isConnected())
            m_page->onScanInterrupted(
                tr("恢复服务中已没有这次扫描（%1），可以重新扫描。").arg(message));
        return;
    }
    if (method != QLatin1String("session.getFiles") || m_awaitedList.isEmpty() ||
        sessionId != m_awaitedList)
        return;
    m_awaitedList.clear();
    if (isShown(sessionId) && m_page->wantsFullList())
        LaterNotice::warn(m_parts.window, tr("文件列表可能不完整"),
                          tr("扫描已结束，但未能取回完整的文件列表。请在“最近扫描”中"
                             "重新打开该会话。"),
                          message);
}

void ScanFlow::startFromPartitionPage()
{
    const QString device = m_parts.partitions->selectedDevicePath();
    QString fileSystem;
    const auto cards = m_parts.partitions->findChildren<PartitionCardWidget *>();
    for (const PartitionCardWidget *card : cards) {
        if (card->devicePath() == device) {
            fileSystem = card->fsType();
            break;
        }
    }
    QWidget *asker = m_parts.partitions->window();
    // A sample disk may bear the name of a real device, which must not be touched in its stead.
    if (m_parts.client->isConnected() && !m_parts.hasRealDisks()) {
        AppNoticeDialog::showWarning(asker, cannotStart(), noPartition());
        return;
    }
    start(asker, device, fileSystem);
}

void ScanFlow::start(QWidget *asker, const QString &device, const QString &fileSystem)
{
    if (m_isPreparing) {
        AppNoticeDialog::showInfo(asker, tr("正在准备分区"),
                                  tr("恢复服务正在准备目标分区，完成后会自动开始扫描。"));
        return;
    }
    if (!device.startsWith(QLatin1String("/dev/"))) {
        AppNoticeDialog::showWarning(asker, cannotStart(), noPartition());
        return;
    }
    if (!m_parts.client->isConnected()) {
        AppNoticeDialog::showError(asker, cannotStart(),
                                   tr("恢复服务未连接，暂时无法准备目标分区。"),
                                   m_parts.client->refusal());
        return;
    }
    const QPointer<ScanFlow> self(this);
    if (!mayReplaceShownWork(asker) || !self)
        return;
    m_isPreparing = true;
    // To unmount a partition may take the service a while.
    m_parts.partitions->setCursor(Qt::BusyCursor);
    const QPointer<QWidget> over(asker);
    m_parts.client->sendRequest(
        QStringLiteral("disk.prepareForScan"), {{QStringLiteral("devicePath"), device}},
        [self, over, device, fileSystem](bool success, const QJsonObject &data,
                                         const QJsonObject &error) {
            if (!self)
                return;
            self->m_isPreparing = false;
            self->m_parts.partitions->unsetCursor();
            if (success) {
                self->onPrepared(device, fileSystem, data);
                return;
            }
            const QString words = error.value(QLatin1String("message")).toString();
            LaterNotice::warn(over, cannotStart(),
                              words.isEmpty() ? tr("目标分区准备失败，请稍后重试。") : words);
        });
}

bool ScanFlow::mayReplaceShownWork(QWidget *asker) const
{
    using Work = RecoveryWorkflowWindow::Work;
    const Work work = m_parts.window->workUnderWay();
    if (work == Work::None)
        return true;
    return AppNoticeDialog::confirm(
        asker, work == Work::Scan ? tr("扫描仍在进行") : tr("恢复仍在进行"),
        tr("开始新的扫描会替换“扫描与恢复”窗口中的内容。正在进行的任务会在服务中继续，但窗口不再"
           "显示它的进度。是否继续？"),
        tr("开始新扫描"), tr("取消"));
}

void ScanFlow::onPrepared(const QString &device, const QString &fileSystem, const QJsonObject &data)
{
    m_awaitedList.clear();
    m_page->initForScan(device, fileSystem, QString());
    m_parts.window->openScanPage();
    const PartitionSelectPage *partitions = m_parts.partitions;
    const QJsonObject params = core::controllers::buildScanParams(
        device, fileSystem, partitions->selectedScanMode(), partitions->advancedScanSettings());
    if (data.value(QLatin1String("action")).toString() == QLatin1String("mounted_readonly"))
        LaterNotice::inform(m_parts.window, tr("扫描准备完成"),
                            tr("目标分区当前无法卸载，已切换为只读挂载后开始扫描。"));
    m_parts.scans->startScan(params);
}

void ScanFlow::onCompleted(const QString &sessionId, const QJsonObject &summary)
{
    if (!isShown(sessionId))
        return;
    m_page->onScanCompleted(summary);
    fetchFullList(sessionId);
}

void ScanFlow::fetchFullList(const QString &sessionId)
{
    m_awaitedList = sessionId;
    m_parts.recoveries->fetchSessionFiles(sessionId);
}

void ScanFlow::onFullList(const QString &sessionId, const QJsonArray &files)
{
    // Lists that others asked for are theirs to show.
    if (m_awaitedList.isEmpty() || sessionId != m_awaitedList)
        return;
    m_awaitedList.clear();
    if (isShown(sessionId) && m_page->wantsFullList())
        m_page->replaceFiles(files);
}
