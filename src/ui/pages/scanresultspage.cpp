#include "ui/pages/scanresultspage.h"

#include "ui/common/appnoticedialog.h"
#include "ui/common/layoutmetrics.h"
#include "ui/pages/scanresultspage/filerecoverydetailpanel.h"
#include "ui/pages/scanresultspage/recoverytoolbar.h"
#include "ui/pages/scanresultspage/resultsarea.h"
#include "ui/pages/scanresultspage/scanheader.h"
#include "ui/pages/scanresultspage/scanlogexporter.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"
#include "ui/pages/scanresultspage/scanresultstable.h"

#include <QDir>
#include <QFileDialog>
#include <QLocale>
#include <QPointer>
#include <QTimer>
#include <QVBoxLayout>

using scanresults::FileRecoveryDetailPanel;
using scanresults::FoundRow;
using scanresults::RecoveryToolbar;
using scanresults::ResultsArea;
using scanresults::ScanHeader;
using scanresults::ScanLogExporter;
using scanresults::ScanResultsModel;
using scanresults::ScanTreeModel;
using ui::common::AppNoticeDialog;
using ui::common::EmptyState;
namespace metrics = ui::common::metrics;
namespace utils = ui::common::utils;

namespace {

constexpr int kElapsedIntervalMs = 500;

QString clockText(qint64 ms)
{
    const qint64 seconds = ms / 1000;
    const auto twoDigits = [](qint64 number) {
        return QStringLiteral("%1").arg(number, 2, 10, QLatin1Char('0'));
    };
    return QStringLiteral("%1:%2:%3")
        .arg(twoDigits(seconds / 3600), twoDigits(seconds / 60 % 60), twoDigits(seconds % 60));
}

} // namespace

ScanResultsPage::ScanResultsPage(QWidget *parent)
    : QWidget(parent)
    , m_elapsedTimer(new QTimer(this))
    , m_chooseDirectory([](QWidget *window, const QString &title, const QString &start) {
        return QFileDialog::getExistingDirectory(window, title, start);
    })
    , m_directories(new ScanTreeModel(this))
    , m_header(new ScanHeader(this))
    , m_toolbar(new RecoveryToolbar(this))
    , m_exporter(new ScanLogExporter(this))
    , m_details(new FileRecoveryDetailPanel(this))
{
    setObjectName(QStringLiteral("ScanResultsPage"));
    m_model = new ScanResultsModel(m_directories, this);
    m_results = new ResultsArea(m_model, m_directories, this);
    m_elapsedTimer->setInterval(kElapsedIntervalMs);
    connect(m_elapsedTimer, &QTimer::timeout, this, &ScanResultsPage::showElapsed);
    arrange();
    wireScan();
    wireResults();
    m_header->setTitle(tr("尚未开始扫描"));
    m_header->setFileSystem(QString());
    m_header->setPhase(QString());
    m_header->setFound(tr("已发现 %1").arg(0));
    m_header->setPercent(0);
    showElapsed();
    setState(State::Idle);
}

ScanResultsPage::~ScanResultsPage() = default;

void ScanResultsPage::arrange()
{
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kPageMargin, metrics::kCardGap, metrics::kPageMargin,
                               metrics::kCardGap);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(m_header);
    column->addWidget(m_results, 1);
    column->addWidget(m_toolbar);
    m_details->attachToHost(m_results->tableArea());
}

void ScanResultsPage::wireScan()
{
    connect(m_header, &ScanHeader::pauseClicked, this, &ScanResultsPage::togglePause);
    connect(m_header, &ScanHeader::stopClicked, this, &ScanResultsPage::pressStop);
    connect(m_results, &ResultsArea::emptyActionTriggered, this, &ScanResultsPage::pressStop);
}

void ScanResultsPage::wireResults()
{
    const auto showChecked = [this] {
        m_toolbar->showChecked(m_model->checkedCount(), m_model->checkedBytes(),
                               m_model->hiddenCheckedCount());
    };
    connect(m_model, &ScanResultsModel::checkedChanged, this, showChecked);
    connect(m_model, &ScanResultsModel::changeEnds, this, &ScanResultsPage::showFound);
    connect(m_toolbar, &RecoveryToolbar::browseClicked, this, &ScanResultsPage::browseOutput);
    connect(m_toolbar, &RecoveryToolbar::exportClicked, this, &ScanResultsPage::exportLog);
    connect(m_toolbar, &RecoveryToolbar::recoverClicked, this, &ScanResultsPage::startRecovery);
    connect(m_results, &ResultsArea::detailsRequested, this, [this](const QModelIndex &index) {
        showDetails(index);
        m_details->showAnimated();
    });
    // An open panel follows the rows that one walks through.
    connect(m_results->table()->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](const QModelIndex &current) {
                if (m_details->isOpened() && current.isValid())
                    showDetails(current);
            });
    connect(m_details, &FileRecoveryDetailPanel::closed, m_results->table(),
            [this] { m_results->table()->setFocus(); });
    connect(m_exporter, &ScanLogExporter::finished, this, &ScanResultsPage::onLogWritten);
}

void ScanResultsPage::initForScan(const QString &device, const QString &fileSystem,
                                  const QString &sessionId)
{
    m_devicePath = device;
    m_fileSystem = fileSystem;
    m_sessionId = sessionId;
    m_accumulatedMs = 0;
    m_percent = 0;
    m_missesFiles = false;
    m_failure.clear();
    m_details->hideAnimated();
    m_results->reset();
    m_header->setTitle(tr("正在扫描 %1").arg(device));
    m_header->setFileSystem(fileSystem);
    m_header->setFound(tr("已发现 %1").arg(0));
    m_header->setPhase(tr("当前: %1").arg(tr("正在初始化...")));
    m_header->setPercent(0);
    startTiming();
    setState(State::Running);
}

void ScanResultsPage::updateProgress(double progress, int filesFound, qint64 elapsedMs,
                                     const QString &phaseText)
{
    Q_UNUSED(filesFound)
    Q_UNUSED(elapsedMs)
    // A late report must not overwrite how the scan ended.
    if (m_state != State::Running)
        return;
    // Rounded down: "100%" is said only of a scan that is through.
    m_percent = static_cast<int>(qBound(0.0, progress, 100.0));
    m_header->setPercent(m_percent);
    if (!phaseText.isEmpty())
        m_header->setPhase(tr("当前: %1").arg(phaseText));
}

void ScanResultsPage::addFiles(const QJsonArray &files)
{
    if (files.isEmpty())
        return;
    if (m_state == State::Paused) {
        m_missesFiles = true;
        return;
    }
    m_model->append(files);
}

void ScanResultsPage::replaceFiles(const QJsonArray &files)
{
    m_missesFiles = false;
    m_model->replace(files);
}

void ScanResultsPage::showFound()
{
    m_header->setFound(tr("已发现 %1").arg(QLocale().toString(m_model->totalCount())));
}

void ScanResultsPage::onScanCompleted(const QJsonObject &summary)
{
    Q_UNUSED(summary)
    finish(State::Completed, tr("扫描完成 %1").arg(m_devicePath), tr("扫描已完成"));
}

void ScanResultsPage::onScanStopped()
{
    finish(State::Stopped, tr("扫描停止 %1").arg(m_devicePath), tr("扫描已停止"));
}

void ScanResultsPage::finish(State state, const QString &title, const QString &text)
{
    stopTiming();
    m_percent = 100;
    m_header->setTitle(title);
    m_header->setPhase(text);
    m_header->setPercent(m_percent);
    setState(state);
}

void ScanResultsPage::onScanError(const QString &message)
{
    stopTiming();
    m_failure = message;
    m_header->setTitle(tr("扫描出错"));
    m_header->setPhase(tr("错误: %1").arg(message), true);
    setState(State::Failed);
}

void ScanResultsPage::onConnectionLost()
{
    if (m_state != State::Running && m_state != State::Paused)
        return;
    m_wasPaused = m_state == State::Paused;
    stopTiming();
    m_header->setTitle(tr("与恢复服务的连接已断开"));
    m_header->setPhase(tr("扫描可能仍在服务中继续；重新连接后会取回它的状态。"), true);
    setState(State::ConnectionLost);
}

void ScanResultsPage::onConnectionRestored(bool isPaused, qint64 elapsedMs)
{
    if (m_state != State::ConnectionLost)
        return;
    m_missesFiles = true;
    m_accumulatedMs = qMax(m_accumulatedMs, elapsedMs);
    m_header->setPhase(tr("已重新连接，扫描结束后会补全文件列表。"));
    if (isPaused)
        showPaused();
    else
        showRunning();
}

void ScanResultsPage::onScanInterrupted(const QString &reason)
{
    if (m_state != State::ConnectionLost)
        return;
    m_failure = reason;
    m_header->setTitle(tr("扫描已中断 %1").arg(m_devicePath));
    m_header->setPhase(reason, true);
    setState(State::Interrupted);
}

bool ScanResultsPage::isScanUnderWay() const
{
    return m_state == State::Running || m_state == State::Paused ||
           m_state == State::ConnectionLost;
}

void ScanResultsPage::setState(State state)
{
    using Pause = ScanHeader::PauseButton;
    using Stop = ScanHeader::StopButton;
    m_state = state;
    switch (state) {
    case State::Running:
        m_header->setButtons(Pause::Pause, Stop::Stop);
        break;
    case State::Paused:
        m_header->setButtons(Pause::Resume, Stop::Stop);
        break;
    case State::Completed:
    case State::Stopped:
    case State::Failed:
    case State::Interrupted:
        m_header->setButtons(Pause::Disabled, Stop::Rescan);
        break;
    case State::Idle:
    case State::ConnectionLost:
        m_header->setButtons(Pause::Disabled, Stop::Disabled);
        break;
    }
    m_header->setScanRunning(state == State::Running);
    m_toolbar->setScanRunning(state == State::Running || state == State::Paused);
    m_results->setComplete(state == State::Completed || state == State::Stopped);
    showEmptyState();
}

void ScanResultsPage::showEmptyState()
{
    using Tone = EmptyState::Tone;
    switch (m_state) {
    case State::Idle:
        m_results->setEmptyText(Tone::Plain, tr("尚未开始扫描"),
                                tr("请在文件恢复页选择分区并开始扫描。"));
        break;
    case State::Running:
        m_results->setEmptyText(Tone::Busy, tr("正在查找已删除的文件"),
                                tr("找到的文件会陆续显示在这里。"));
        break;
    case State::Paused:
        m_results->setEmptyText(Tone::Plain, tr("扫描已暂停"), tr("点击“继续”恢复扫描。"));
        break;
    case State::Completed:
    case State::Stopped:
        m_results->setEmptyText(Tone::Plain, tr("没有找到可恢复的文件"),
                                tr("可以换用深度扫描或选择其他分区再试。"), tr("重新扫描"));
        break;
    case State::Failed:
        m_results->setEmptyText(Tone::Error, tr("扫描出错"), m_failure, tr("重新扫描"));
        break;
    case State::ConnectionLost:
        m_results->setEmptyText(Tone::Error, tr("与恢复服务的连接已断开"),
                                tr("重新连接后会取回扫描的状态。"));
        break;
    case State::Interrupted:
        m_results->setEmptyText(Tone::Error, tr("扫描已中断"), m_failure, tr("重新扫描"));
        break;
    }
}

void ScanResultsPage::togglePause()
{
    if (m_sessionId.isEmpty())
        return;
    // The page goes ahead of the service; a refusal takes it back.
    if (m_state == State::Running) {
        showPaused();
        emit requestPauseScan(m_sessionId);
    } else if (m_state == State::Paused) {
        showRunning();
        emit requestResumeScan(m_sessionId);
    }
}

void ScanResultsPage::showPaused()
{
    stopTiming();
    m_header->setTitle(tr("扫描已暂停 %1").arg(m_devicePath));
    setState(State::Paused);
}

void ScanResultsPage::showRunning()
{
    startTiming();
    m_header->setTitle(tr("正在扫描 %1").arg(m_devicePath));
    setState(State::Running);
}

void ScanResultsPage::pressStop()
{
    if (m_state == State::Running || m_state == State::Paused)
        emit requestStopScan(m_sessionId);
    else
        emit requestRescan(m_devicePath, m_fileSystem);
}

void ScanResultsPage::onPauseRequestFailed(const QString &message)
{
    if (m_state != State::Paused)
        return;
    showRunning();
    AppNoticeDialog::showWarning(this, tr("暂停失败"),
                                 tr("扫描任务未成功暂停，已恢复实时扫描显示。"), message);
}

void ScanResultsPage::onResumeRequestFailed(const QString &message)
{
    if (m_state != State::Running)
        return;
    showPaused();
    AppNoticeDialog::showWarning(this, tr("恢复失败"),
                                 tr("扫描任务未成功恢复，界面已回到暂停状态。"), message);
}

void ScanResultsPage::onStopRequestFailed(const QString &message)
{
    AppNoticeDialog::showWarning(this, tr("停止失败"), tr("扫描任务未成功停止，请稍后重试。"),
                                 message);
}

void ScanResultsPage::startTiming()
{
    m_runClock.start();
    m_elapsedTimer->start();
    showElapsed();
}

void ScanResultsPage::stopTiming()
{
    m_accumulatedMs = elapsedMs();
    m_runClock.invalidate();
    m_elapsedTimer->stop();
    showElapsed();
}

qint64 ScanResultsPage::elapsedMs() const
{
    return m_accumulatedMs + (m_runClock.isValid() ? m_runClock.elapsed() : 0);
}

void ScanResultsPage::showElapsed()
{
    m_header->setElapsed(tr("耗时 %1").arg(clockText(elapsedMs())));
}

QString ScanResultsPage::outputPath() const
{
    return m_toolbar->outputPath();
}

QStringList ScanResultsPage::fileNamesForIds(const QStringList &fileIds) const
{
    return m_model->namesForIds(fileIds);
}

QStringList ScanResultsPage::checkedFileIds() const
{
    return m_model->checkedIds();
}

qint64 ScanResultsPage::checkedBytes() const
{
    return m_model->checkedBytes();
}

qint64 ScanResultsPage::largestCheckedBytes() const
{
    return m_model->largestCheckedBytes();
}

void ScanResultsPage::setDirectoryChooser(const DirectoryChooser &chooser)
{
    m_chooseDirectory = chooser;
}

void ScanResultsPage::browseOutput()
{
    const QPointer<ScanResultsPage> self(this);
    const QString start = outputPath().isEmpty() ? QDir::homePath() : outputPath();
    const QString chosen = m_chooseDirectory(this, tr("选择恢复文件输出目录"), start);
    // The page may have gone while the dialog was open.
    if (self && !chosen.isEmpty())
        m_toolbar->setOutputPath(chosen);
}

void ScanResultsPage::exportLog()
{
    const QPointer<ScanResultsPage> self(this);
    const QString start = outputPath().isEmpty() ? QDir::homePath() : outputPath();
    const QString directory = m_chooseDirectory(this, tr("选择日志导出目录"), start);
    if (!self || directory.isEmpty())
        return;
    utils::ScanLog log;
    log.sessionId = m_sessionId;
    log.device = m_devicePath;
    log.fileSystem = m_fileSystem;
    log.filesFound = QLocale().toString(m_model->totalCount());
    log.progress = tr("%1%").arg(m_percent);
    log.elapsed = clockText(elapsedMs());
    log.exportedAt = QDateTime::currentDateTime();
    log.entries = m_model->logEntries();
    m_toolbar->setExporting(true);
    m_exporter->write(directory, log);
}

void ScanResultsPage::onLogWritten(const QString &path, const QString &error)
{
    m_toolbar->setExporting(false);
    if (error.isEmpty())
        AppNoticeDialog::showSuccess(this, tr("导出完成"), tr("日志已成功保存。"), path);
    else
        AppNoticeDialog::showError(this, tr("导出失败"),
                                   tr("无法保存日志，请检查目录的权限和剩余空间，或换一个目录。"),
                                   path + QStringLiteral(": ") + error);
}

void ScanResultsPage::startRecovery()
{
    if (outputPath().isEmpty()) {
        m_toolbar->focusOutputPath();
        AppNoticeDialog::showWarning(this, tr("未设置输出路径"),
                                     tr("请先选择恢复文件的输出目录。"));
        return;
    }
    const QStringList ids = m_model->checkedIds();
    if (ids.isEmpty()) {
        AppNoticeDialog::showWarning(this, tr("无选中文件"), tr("请先勾选要恢复的文件。"));
        return;
    }
    emit requestStartRecovery(m_sessionId, ids, outputPath(), QStringLiteral("rename"));
}

void ScanResultsPage::showDetails(const QModelIndex &index)
{
    const FoundRow &row = m_model->row(index);
    FileRecoveryDetailPanel::Values values;
    values.name = row.name;
    values.size = row.size;
    values.type = row.type;
    values.path = row.path();
    values.blockStart = row.blockStart;
    values.source = row.sourceWord;
    values.integrity = row.label;
    values.reason = row.reason;
    values.probability = row.probability;
    values.contiguity = utils::contiguityText(row.contiguity);
    m_details->setDetailValues(values);
}
