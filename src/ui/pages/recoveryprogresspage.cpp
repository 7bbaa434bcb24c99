#include "ui/pages/recoveryprogresspage.h"

#include "core/jsonnumber.h"
#include "core/runinpool.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/apptooltip.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/utils/formatutils.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/recoverydetaildialog.h"
#include "ui/pages/recoveryprogresspage/filelist.h"
#include "ui/pages/recoveryprogresspage/progresscard.h"
#include "ui/pages/recoveryprogresspage/recoveryreport.h"

#include <QDateTime>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QLabel>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

using recoveryprogress::FileList;
using recoveryprogress::ProgressCard;
using recoveryresult::FileResult;
using ui::common::AppNoticeDialog;
using ui::common::AppToolTip;
using ui::common::ElidedLabel;
namespace metrics = ui::common::metrics;

RecoveryProgressPage::RecoveryProgressPage(QWidget *parent)
    : QWidget(parent)
    , m_openDirectory([](const QString &directory) {
        return QProcess::startDetached(QStringLiteral("xdg-open"), {directory});
    })
    , m_chooseSave([](QWidget *window, const QString &suggested) {
        return QFileDialog::getSaveFileName(window, tr("保存恢复报告"), suggested,
                                            tr("CSV 表格 (*.csv)"));
    })
    , m_progress(new ProgressCard(this))
    , m_files(new FileList(this))
{
    setObjectName(QStringLiteral("RecoveryProgressPage"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    layout->setSpacing(metrics::kCardGap);
    layout->addLayout(buildHeader());
    layout->addWidget(m_progress);
    layout->addWidget(m_files, 1);
    layout->addWidget(buildToolbar());
    connect(m_files, &FileList::detailRequested, this, &RecoveryProgressPage::showDetailForRow);
    connect(m_progress, &ProgressCard::targetActivated, this, &RecoveryProgressPage::openTarget);
    m_progress->setPercent(0);
    showCounters(0, 0, 0);
    showStopButton();
}

QHBoxLayout *RecoveryProgressPage::buildHeader()
{
    auto *title = new QLabel(tr("LINUX 数据恢复"), this);
    title->setObjectName(QStringLiteral("PageTitle"));
    m_session = new ElidedLabel(QString(), Qt::ElideMiddle, this);
    m_session->setObjectName(QStringLiteral("RecoverySessionText"));
    m_session->setProperty("textRole", QStringLiteral("subtle"));
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(title);
    texts->addWidget(m_session);
    auto *row = new QHBoxLayout;
    row->addLayout(texts, 1);
    return row;
}

QWidget *RecoveryProgressPage::buildToolbar()
{
    auto *toolbar = new QFrame(this);
    toolbar->setObjectName(QStringLiteral("BottomToolbar"));
    m_succeeded = new QLabel(toolbar);
    m_succeeded->setObjectName(QStringLiteral("RecoverySucceededCount"));
    m_succeeded->setProperty("tone", QStringLiteral("success"));
    m_failed = new QLabel(toolbar);
    m_failed->setObjectName(QStringLiteral("RecoveryFailedCount"));
    m_skipped = new QLabel(toolbar);
    m_skipped->setObjectName(QStringLiteral("RecoverySkippedCount"));
    m_open = new QPushButton(tr("打开目录"), toolbar);
    m_open->setObjectName(QStringLiteral("OpenRecoveryFolderButton"));
    m_save = new QPushButton(tr("保存报告"), toolbar);
    m_save->setObjectName(QStringLiteral("SaveRecoveryReportButton"));
    m_save->setToolTip(tr("保存为 CSV 表格，含每个文件的原路径、结果和 SHA-256"));
    connect(m_open, &QPushButton::clicked, this, &RecoveryProgressPage::openTarget);
    connect(m_save, &QPushButton::clicked, this, &RecoveryProgressPage::saveReport);
    m_stop = new QPushButton(tr("停止恢复"), toolbar);
    m_stop->setObjectName(QStringLiteral("StopRecoveryButton"));
    ui::common::setButtonRole(m_stop, QStringLiteral("danger"));
    m_back = new QPushButton(tr("返回扫描结果"), toolbar);
    m_back->setObjectName(QStringLiteral("BackToScanResultsButton"));
    ui::common::setButtonRole(m_back, QStringLiteral("primary"));
    auto *close = new QPushButton(tr("关闭窗口"), toolbar);
    close->setObjectName(QStringLiteral("CloseRecoveryWindowButton"));
    AppToolTip::install(close, QString(), tr("只关闭窗口；正在进行的恢复会在服务中继续。"));
    connect(m_stop, &QPushButton::clicked, this, &RecoveryProgressPage::pressStop);
    connect(m_back, &QPushButton::clicked, this, &RecoveryProgressPage::requestBackToScanResults);
    connect(close, &QPushButton::clicked, this, [this] { window()->close(); });

    auto *row = new QHBoxLayout(toolbar);
    row->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                            metrics::kCardGap);
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_succeeded);
    row->addSpacing(metrics::kGroupGap);
    row->addWidget(m_failed);
    row->addSpacing(metrics::kGroupGap);
    row->addWidget(m_skipped);
    row->addStretch(1);
    row->addWidget(m_save);
    row->addWidget(m_open);
    row->addWidget(m_stop);
    row->addWidget(close);
    row->addWidget(m_back);
    return toolbar;
}

void RecoveryProgressPage::initForRecovery(const QString &sessionId, const QString &recoveryId,
                                           const QString &targetDevice, const QString &outputDir,
                                           int fileCount, const QVector<File> &files)
{
    m_state = State::Running;
    m_isStopping = false;
    m_sessionId = sessionId;
    m_recoveryId = recoveryId;
    m_outputDir = outputDir;
    m_taskDetail = QJsonObject();
    m_tally.reset();
    m_session->setText(tr("会话: %1  %2").arg(sessionId, targetDevice));
    m_progress->setState(tr("正在恢复"), QString());
    m_progress->setHint(QString());
    m_progress->setPercent(0);
    m_progress->setFileCount(fileCount);
    m_progress->setProcessed(tr("%1 / %2").arg(0).arg(fileCount));
    m_progress->setVolume(QString());
    m_progress->setTarget(outputDir);
    QVector<FileResult> results;
    results.reserve(files.size());
    for (const File &file : files) {
        FileResult result;
        result.fileId = file.fileId;
        result.name = file.name;
        results.append(result);
    }
    m_files->setFiles(results);
    showCounters(0, 0, 0);
    showStopButton();
}

void RecoveryProgressPage::setRecoveryId(const QString &recoveryId)
{
    m_recoveryId = recoveryId;
    showStopButton();
}

void RecoveryProgressPage::updateProgress(double progress, int processed, int total)
{
    if (m_state != State::Running)
        return;
    m_progress->setPercent(recoveryprogress::shownPercent(progress));
    m_progress->setProcessed(tr("%1 / %2").arg(processed).arg(total));
}

void RecoveryProgressPage::updateFileStatus(const QString &fileId, const QString &status,
                                            const QString &detail, const QStringList &timeline)
{
    if (m_state == State::Idle)
        return;
    FileResult result;
    result.fileId = fileId;
    result.status = status;
    result.detail = detail;
    result.timeline = timeline;
    m_files->model()->update(result);
    // The service's own sums stand once it has told them.
    if (m_tally.record(fileId, status) && m_state != State::Completed)
        showCounters(m_tally.succeeded(), m_tally.failed(), m_tally.skipped());
}

bool RecoveryProgressPage::isRecoveryUnderWay() const
{
    return m_state == State::Running || m_state == State::ConnectionLost;
}

void RecoveryProgressPage::onRecoveryCompleted(const QJsonObject &summary)
{
    if (!isRecoveryUnderWay())
        return;
    finish(State::Completed, tr("恢复完成"), QStringLiteral("success"));
    m_progress->setPercent(100);
    const QJsonValue written = summary.value(QLatin1String("totalBytesWritten"));
    const QJsonValue bytes =
        written.isUndefined() ? summary.value(QLatin1String("totalBytes")) : written;
    m_progress->setVolume(ui::common::utils::formatByteSize(core::toInt64(bytes)));
    showCounters(summary.value(QLatin1String("succeeded")).toInt(m_tally.succeeded()),
                 summary.value(QLatin1String("failed")).toInt() +
                     summary.value(QLatin1String("partial")).toInt(),
                 summary.value(QLatin1String("skipped")).toInt(m_tally.skipped()));
}

void RecoveryProgressPage::onRecoveryStopped()
{
    if (!isRecoveryUnderWay())
        return;
    finish(State::Stopped, tr("恢复已停止"), QStringLiteral("warning"));
    m_progress->setHint(tr("已写出的文件保留在目标路径中。"));
}

void RecoveryProgressPage::onRecoveryError(const QString &message)
{
    if (!isRecoveryUnderWay())
        return;
    finish(State::Failed, tr("恢复出错"), QStringLiteral("error"));
    m_progress->setHint(message);
    showErrorNotice(tr("恢复失败"), message);
}

void RecoveryProgressPage::onStopRequestFailed(const QString &message)
{
    if (m_state != State::Running || !m_isStopping)
        return;
    m_isStopping = false;
    showStopButton();
    showErrorNotice(tr("停止恢复失败"), message);
}

void RecoveryProgressPage::onConnectionLost()
{
    if (m_state != State::Running)
        return;
    finish(State::ConnectionLost, tr("与恢复服务的连接已断开"), QStringLiteral("error"));
    m_progress->setHint(tr("恢复可能仍在服务中继续；重新连接后会取回它的状态。"));
}

void RecoveryProgressPage::onConnectionRestored()
{
    if (m_state != State::ConnectionLost)
        return;
    m_state = State::Running;
    m_progress->setState(tr("正在恢复"), QString());
    m_progress->setHint(QString());
    m_files->model()->setRunning(true);
    showStopButton();
}

void RecoveryProgressPage::applyFileStatuses(const QJsonObject &detail)
{
    const QJsonArray statuses = detail.value(QLatin1String("fileStatuses")).toArray();
    for (const QJsonValue &value : statuses) {
        const FileResult kept = FileResult::fromJson(value.toObject());
        updateFileStatus(kept.fileId, kept.status, kept.detail, kept.timeline);
    }
}

void RecoveryProgressPage::setRecoveryTaskDetail(const QJsonObject &detail)
{
    m_taskDetail = detail;
}

void RecoveryProgressPage::onTaskDetailFailed(const QString &message)
{
    m_progress->setHint(tr("未能取回任务明细（%1），个别文件的处理时序可能不完整。").arg(message));
}

void RecoveryProgressPage::pressStop()
{
    m_isStopping = true;
    showStopButton();
    emit requestStopRecovery(m_recoveryId);
}

void RecoveryProgressPage::showStopButton()
{
    const bool isRunning = m_state == State::Running;
    m_stop->setVisible(isRunning);
    m_stop->setEnabled(isRunning && !m_isStopping && !m_recoveryId.isEmpty());
    m_stop->setText(m_isStopping ? tr("正在停止...") : tr("停止恢复"));
    const bool isOver = !isRunning && m_state != State::Idle;
    m_back->setVisible(isOver);
    m_open->setVisible(isOver);
    m_save->setVisible(isOver);
}

void RecoveryProgressPage::showCounters(int succeeded, int failed, int skipped)
{
    m_succeeded->setText(tr("已恢复\n%1").arg(succeeded));
    m_failed->setText(tr("失败\n%1").arg(failed));
    m_skipped->setText(tr("已跳过\n%1").arg(skipped));
    ui::common::setStyleProperty(m_failed, "tone",
                                 failed > 0 ? QStringLiteral("error") : QString());
}

void RecoveryProgressPage::openTarget()
{
    if (!m_openDirectory(m_outputDir))
        AppNoticeDialog::showWarning(window(), tr("无法打开目录"), tr("没有可用的文件管理器。"),
                                     m_outputDir);
}

void RecoveryProgressPage::saveReport()
{
    const QPointer<RecoveryProgressPage> self(this);
    const QString name =
        tr("恢复报告_%1.csv")
            .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd_HHmmss")));
    QString path = m_chooseSave(window(), QDir(m_outputDir).filePath(name));
    // The page may have gone while the dialog was open.
    if (!self || path.isEmpty())
        return;
    if (!path.endsWith(QLatin1String(".csv"), Qt::CaseInsensitive))
        path += QLatin1String(".csv");
    m_save->setEnabled(false);
    const auto files = m_files->model()->files();
    const QJsonObject detail = m_taskDetail;
    core::runInPool(
        this,
        [files, detail, path] {
            using namespace recoveryprogress;
            return writeReport(path, reportCsv(reportRows(files, detail, false)));
        },
        [this, path](const QString &error) { onReportWritten(path, error); });
}

void RecoveryProgressPage::onReportWritten(const QString &path, const QString &error)
{
    m_save->setEnabled(true);
    if (error.isEmpty())
        AppNoticeDialog::showSuccess(window(), tr("保存完成"), tr("恢复报告已保存。"), path);
    else
        AppNoticeDialog::showError(
            window(), tr("保存失败"),
            tr("无法保存恢复报告，请检查目录的权限和剩余空间，或换一个目录。"),
            path + QStringLiteral(": ") + error);
}

void RecoveryProgressPage::finish(State state, const QString &text, const QString &tone)
{
    m_state = state;
    m_progress->setState(text, tone);
    m_progress->setHint(QString());
    onFinished();
}

void RecoveryProgressPage::onFinished()
{
    m_isStopping = false;
    m_files->model()->setRunning(false);
    showStopButton();
}

void RecoveryProgressPage::showErrorNotice(const QString &title, const QString &message)
{
    // Not from within the slot: it runs while the link reads, and no more is read until it returns.
    QTimer::singleShot(
        0, this, [this, title, message] { AppNoticeDialog::showError(window(), title, message); });
}

FileResult RecoveryProgressPage::resultForRow(int row) const
{
    FileResult result = m_files->model()->at(row);
    const QJsonArray known = m_taskDetail.value(QLatin1String("fileStatuses")).toArray();
    for (const QJsonValue &value : known) {
        const QJsonObject object = value.toObject();
        if (object.value(QLatin1String("fileId")).toString() != result.fileId)
            continue;
        const FileResult kept = FileResult::fromJson(object);
        if (result.status.isEmpty())
            result.status = kept.status;
        if (result.detail.isEmpty())
            result.detail = kept.detail;
        if (result.timeline.isEmpty())
            result.timeline = kept.timeline;
        break;
    }
    const bool isLeftBehind =
        m_state != State::Running && result.detail.isEmpty() &&
        recoveryresult::outcomeOf(result.status) == recoveryresult::Outcome::Pending;
    if (isLeftBehind)
        result.detail = tr("恢复已结束，没有收到该文件的最终结果。");
    return result;
}

void RecoveryProgressPage::showDetailForRow(int row)
{
    RecoveryDetailDialog::open(resultForRow(row), m_state == State::Running, window());
}
