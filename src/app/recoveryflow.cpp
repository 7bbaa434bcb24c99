#include "app/recoveryflow.h"

#include "core/controllers/recoverycontroller.h"
#include "core/controllers/workstatus.h"
#include "core/ipc/ipcclient.h"
#include "ui/common/appnoticedialog.h"
#include "ui/pages/recoveryworkflowwindow.h"
#include "ui/pages/scanresultspage.h"

#include <QDir>
#include <QFutureWatcher>
#include <QJsonArray>
#include <QPointer>
#include <QtConcurrent>

using core::controllers::RecoveryController;
using core::controllers::RecoveryTargetFacts;
using core::ipc::IpcClient;
using ui::common::AppNoticeDialog;

namespace {

/// The end of a recovery as its event would have told it.
QJsonObject summaryOf(const QJsonObject &detail)
{
    QJsonObject summary = detail;
    summary.insert(QStringLiteral("totalBytesWritten"),
                   detail.value(QLatin1String("writtenBytes")));
    return summary;
}

} // namespace

RecoveryFlow::RecoveryFlow(IpcClient *client, RecoveryController *recoveries,
                           RecoveryWorkflowWindow *window, QObject *parent)
    : QObject(parent)
    , m_client(client)
    , m_recoveries(recoveries)
    , m_window(window)
    , m_scanPage(window->scanPage())
    , m_page(window->recoveryPage())
    , m_probe(&core::controllers::probeRecoveryTarget)
{
    connect(m_scanPage, &ScanResultsPage::requestStartRecovery, this, &RecoveryFlow::check);
    connect(m_page, &RecoveryProgressPage::requestStopRecovery, m_recoveries,
            &RecoveryController::stopRecovery);
    connect(m_page, &RecoveryProgressPage::requestBackToScanResults, m_window,
            &RecoveryWorkflowWindow::openScanPage);
    wireTask();
    wireEnd();
    wireLink();
}

bool RecoveryFlow::isShown(const QString &recoveryId) const
{
    return !recoveryId.isEmpty() && recoveryId == m_page->recoveryId();
}

void RecoveryFlow::wireTask()
{
    connect(m_recoveries, &RecoveryController::recoveryStarted, m_page,
            &RecoveryProgressPage::setRecoveryId);
    connect(m_recoveries, &RecoveryController::recoveryProgress, this,
            [this](const QString &id, double progress, int processed, int total) {
                if (isShown(id))
                    m_page->updateProgress(progress, processed, total);
            });
    connect(m_recoveries, &RecoveryController::recoveryFileStatus, this,
            [this](const QString &id, const QString &fileId, const QString &status,
                   const QString &detail, const QStringList &timeline) {
                if (isShown(id))
                    m_page->updateFileStatus(fileId, status, detail, timeline);
            });
    connect(m_recoveries, &RecoveryController::stopResult, this,
            [this](const QString &id, bool success, const QString &message) {
                if (!success && isShown(id))
                    m_page->onStopRequestFailed(message);
            });
}

void RecoveryFlow::wireEnd()
{
    connect(m_recoveries, &RecoveryController::recoveryCompleted, this,
            [this](const QString &id, const QJsonObject &summary) {
                if (!isShown(id))
                    return;
                m_page->onRecoveryCompleted(summary);
                m_recoveries->fetchRecoveryTaskDetail(id);
            });
    connect(m_recoveries, &RecoveryController::recoveryTaskDetailReceived, this,
            [this](const QString &id, const QJsonObject &detail) {
                if (!isShown(id))
                    return;
                m_page->setRecoveryTaskDetail(detail);
                resume(id, detail);
            });
    connect(m_recoveries, &RecoveryController::queryFailed, this,
            [this](const QString &method, const QString &id, const QString &message) {
                // The history dialog asks for details of its own, also of this task.
                if (method == QLatin1String("recovery.getDetail") && isShown(id) &&
                    m_page->state() == RecoveryProgressPage::State::Completed)
                    m_page->onTaskDetailFailed(message);
            });
    // A start that was refused has no task yet.
    connect(m_recoveries, &RecoveryController::recoveryStopped, this, [this](const QString &id) {
        if (id.isEmpty() || isShown(id))
            m_page->onRecoveryStopped();
    });
    connect(m_recoveries, &RecoveryController::recoveryError, this,
            [this](const QString &id, const QString &message) {
                if (id.isEmpty() || isShown(id))
                    m_page->onRecoveryError(message);
            });
}

void RecoveryFlow::wireLink()
{
    using State = RecoveryProgressPage::State;
    connect(m_client, &IpcClient::disconnected, m_page, &RecoveryProgressPage::onConnectionLost);
    connect(m_client, &IpcClient::connected, this, [this] {
        if (m_page->state() == State::ConnectionLost && !m_page->recoveryId().isEmpty())
            m_recoveries->fetchRecoveryTaskDetail(m_page->recoveryId());
    });
    connect(m_recoveries, &RecoveryController::queryFailed, this,
            [this](const QString &method, const QString &id, const QString &message) {
                // Without a link the next connection asks again.
                if (method == QLatin1String("recovery.getDetail") && isShown(id) &&
                    m_page->state() == State::ConnectionLost && m_client->isConnected())
                    m_page->onRecoveryError(
                        tr("恢复服务中已没有这次恢复的记录（%1）。已写出的文件保留在目标路径中。")
                            .arg(message));
            });
}

void RecoveryFlow::resume(const QString &recoveryId, const QJsonObject &detail)
{
    using core::controllers::WorkStatus;
    if (m_page->state() != RecoveryProgressPage::State::ConnectionLost || !isShown(recoveryId))
        return;
    m_page->applyFileStatuses(detail);
    switch (core::controllers::workStatusOf(detail)) {
    case WorkStatus::Running:
    case WorkStatus::Paused:
        m_page->onConnectionRestored();
        break;
    case WorkStatus::Completed:
        m_page->onRecoveryCompleted(summaryOf(detail));
        break;
    case WorkStatus::Stopped:
        m_page->onRecoveryStopped();
        break;
    case WorkStatus::Failed:
    case WorkStatus::Interrupted: {
        const QString words = detail.value(QLatin1String("error")).toString();
        m_page->onRecoveryError(words.isEmpty() ? tr("恢复没有完成。已写出的文件保留在目标路径中。")
                                                : words);
        break;
    }
    }
}

QVector<RecoveryProgressPage::File> RecoveryFlow::filesFor(const QStringList &fileIds) const
{
    // The ids come in the order of the table, as the names do. A service that gives two files one
    // id breaks the pairing; the rows then go by their ids.
    const QStringList names = m_scanPage->fileNamesForIds(fileIds);
    const bool isPaired = names.size() == fileIds.size();
    QVector<RecoveryProgressPage::File> files;
    files.reserve(fileIds.size());
    for (int i = 0; i < fileIds.size(); ++i)
        files.append({fileIds.at(i), isPaired ? names.at(i) : fileIds.at(i)});
    return files;
}

void RecoveryFlow::check(const QString &sessionId, const QStringList &fileIds,
                         const QString &outputPath, const QString &conflictPolicy)
{
    if (m_page->isRecoveryUnderWay()) {
        AppNoticeDialog::showWarning(m_window, tr("恢复仍在进行"),
                                     tr("请等待当前的恢复结束，或先停止它，再恢复其他文件。"));
        m_window->openRecoveryPage();
        return;
    }
    const QString base = outputPath.trimmed();
    if (!QDir::isAbsolutePath(base)) {
        AppNoticeDialog::showWarning(m_window, tr("输出目录无效"),
                                     tr("请填写以“/”开头的完整路径，或点击“浏览”选择目录。"), base);
        return;
    }
    Demand demand;
    demand.sessionId = sessionId;
    demand.fileIds = fileIds;
    demand.conflictPolicy = conflictPolicy;
    demand.files = filesFor(fileIds);
    demand.target.scannedDevice = m_scanPage->devicePath();
    demand.target.totalBytes = m_scanPage->checkedBytes();
    demand.target.largestBytes = m_scanPage->largestCheckedBytes();

    // A look at a mount that has gone may take long.
    const int number = ++m_latestCheck;
    auto *watcher = new QFutureWatcher<RecoveryTargetFacts>(this);
    connect(watcher, &QFutureWatcher<RecoveryTargetFacts>::finished, this,
            [this, watcher, number, demand] {
                watcher->deleteLater();
                if (number == m_latestCheck)
                    onChecked(demand, watcher->result());
            });
    watcher->setFuture(QtConcurrent::run([probe = m_probe, base] { return probe(base); }));
}

void RecoveryFlow::onChecked(const Demand &demand, const RecoveryTargetFacts &facts)
{
    const QStringList warnings = core::controllers::recoveryTargetWarnings(demand.target, facts);
    if (!warnings.isEmpty()) {
        const QPointer<RecoveryFlow> self(this);
        const bool goesOn = AppNoticeDialog::confirm(m_window, tr("恢复目标有风险"),
                                                     warnings.join(QStringLiteral("\n\n")),
                                                     tr("仍然继续"), tr("返回修改"));
        if (!self || !goesOn)
            return;
    }
    start(demand, facts.outputDir);
}

void RecoveryFlow::start(const Demand &demand, const QString &outputDir)
{
    // The page comes first, so that a refused start shows on it.
    m_page->initForRecovery(demand.sessionId, QString(), demand.target.scannedDevice, outputDir,
                            demand.fileIds.size(), demand.files);
    m_window->openRecoveryPage();
    m_recoveries->startRecovery(
        {{QStringLiteral("sessionId"), demand.sessionId},
         {QStringLiteral("fileIds"), QJsonArray::fromStringList(demand.fileIds)},
         {QStringLiteral("outputDir"), outputDir},
         {QStringLiteral("conflictPolicy"), demand.conflictPolicy}});
}
