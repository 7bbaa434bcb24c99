#include "ui/pages/wechatcleanpage.h"

#include "ui/common/appnoticedialog.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/longwork.h"
#include "ui/common/styletemplate.h"
#include "ui/pages/wechatcleanpage/busypanel.h"
#include "ui/pages/wechatcleanpage/cleantasks.h"
#include "ui/pages/wechatcleanpage/cleantexts.h"
#include "ui/pages/wechatcleanpage/directorypanel.h"
#include "ui/pages/wechatcleanpage/pageheader.h"
#include "ui/pages/wechatcleanpage/profilerules.h"
#include "ui/pages/wechatcleanpage/recordkeeper.h"
#include "ui/pages/wechatcleanpage/resultpanel.h"

#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QPointer>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>

using ui::common::AppNoticeDialog;
using wechatclean::BusyPanel;
using wechatclean::CleanTasks;
using wechatclean::DirectoryPanel;
using wechatclean::PageHeader;
using wechatclean::RecordKeeper;
using wechatclean::ResultPanel;
namespace metrics = ui::common::metrics;

namespace {

/// The names of what the user sets off, in the log.
void noteAction(const char *utf8)
{
    qInfo().noquote() << "[WechatCleanPage]" << QString::fromUtf8(utf8);
}

/// These two have no text that could show the focus.
QString pageSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QRadioButton#WechatFileRadio::indicator:focus, QCheckBox#WechatProfileCheck::indicator:focus {
    border: 2px solid @textPrimary@; width: 14px; height: 14px; }
)qss"));
}

QString pleaseWait()
{
    return WechatCleanPage::tr("请稍候...");
}

} // namespace

WechatCleanPage::WechatCleanPage(QWidget *parent, const QString &home)
    : QWidget(parent)
    , m_tasks(new CleanTasks(home, this))
    , m_recordKeeper(new RecordKeeper(m_tasks, this))
    , m_work(new ui::common::LongWork(tr("微信清理"), this))
{
    setObjectName(QStringLiteral("WechatCleanPage"));
    setStyleSheet(pageSheet());
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kCardGap);
    column->setSpacing(metrics::kCardGap);
    buildHeader(column);
    buildStates(column);
    wireTasks();
    switchState(UiState::NoDirectory);
}

WechatCleanPage::~WechatCleanPage()
{
    // While the widgets that late signals would reach are still there.
    delete m_tasks;
}

void WechatCleanPage::buildHeader(QBoxLayout *column)
{
    m_header = new PageHeader(this);
    connect(m_header, &PageHeader::settingsRequested, this, &WechatCleanPage::openSettings);
    connect(m_header, &PageHeader::historyRequested, this, &WechatCleanPage::openHistoryDialog);
    connect(m_recordKeeper, &RecordKeeper::undoRequested, this,
            &WechatCleanPage::triggerUndoForRecord);
    column->addWidget(m_header);
}

void WechatCleanPage::buildStates(QBoxLayout *column)
{
    m_directories = new DirectoryPanel(this);
    m_busy = new BusyPanel(this);
    m_resultPanel = new ResultPanel(this);
    m_stack = new QStackedWidget(this);
    m_stack->setObjectName(QStringLiteral("WechatStateStack"));
    m_stack->addWidget(m_directories);
    m_stack->addWidget(m_busy);
    m_stack->addWidget(m_resultPanel);
    column->addWidget(m_stack, 1);

    connect(m_directories, &DirectoryPanel::addRequested, this,
            &WechatCleanPage::addManualDirectory);
    connect(m_directories, &DirectoryPanel::redetectRequested, this,
            &WechatCleanPage::refreshDetectedProfiles);
    connect(m_directories, &DirectoryPanel::startRequested, this, &WechatCleanPage::startScan);
    connect(m_directories, &DirectoryPanel::backRequested, this,
            [this] { switchState(UiState::Results); });
    connect(m_directories, &DirectoryPanel::removeRequested, this,
            &WechatCleanPage::removeProfileByPath);
    connect(m_directories, &DirectoryPanel::selectionChanged, this,
            [this](const QString &path, bool selected) {
                if (selected)
                    m_deselected.remove(path);
                else
                    m_deselected.insert(path);
            });
    connect(m_busy, &BusyPanel::stopRequested, this, &WechatCleanPage::stopCurrentTask);
    connect(m_resultPanel, &ResultPanel::adjustRequested, this, &WechatCleanPage::showDirectories);
    connect(m_resultPanel, &ResultPanel::rescanRequested, this, &WechatCleanPage::startScan);
    connect(m_resultPanel, &ResultPanel::cleanAllRequested, this, &WechatCleanPage::cleanAll);
    connect(m_resultPanel, &ResultPanel::cleanRequested, this, &WechatCleanPage::cleanCard);
    connect(m_resultPanel, &ResultPanel::openFolderRequested, this, &WechatCleanPage::openFolder);
}

void WechatCleanPage::wireTasks()
{
    using Page = WechatCleanPage;
    connect(m_tasks, &CleanTasks::recoveryFinished, this, &Page::onRecoveryFinished);
    connect(m_tasks, &CleanTasks::detectFinished, this, &Page::onDetectFinished);
    connect(m_tasks, &CleanTasks::progressChanged, this, &Page::onProgressChanged);
    connect(m_tasks, &CleanTasks::duplicateGroupsReady, this, &Page::onDuplicateGroupsReady);
    connect(m_tasks, &CleanTasks::scanFinished, this, &Page::onScanFinished);
    connect(m_tasks, &CleanTasks::mergeableActionsReady, this, &Page::onMergeableActionsReady);
    connect(m_tasks, &CleanTasks::preflightFinished, this, &Page::onPreflightFinished);
    connect(m_tasks, &CleanTasks::cleanProgressChanged, this, &Page::onCleanProgressChanged);
    connect(m_tasks, &CleanTasks::cleanFinished, this, &Page::onCleanFinished);
    connect(m_tasks, &CleanTasks::undoFinished, this, &Page::onUndoFinished);
    connect(m_tasks, &CleanTasks::recordRead, this, &Page::onRecordRead);
    connect(m_tasks, &CleanTasks::rootDetected, this, &Page::onRootDetected);
}

void WechatCleanPage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_wasShown)
        return;
    m_wasShown = true;
    switchToBusy(tr("正在检测微信目录"), pleaseWait(), false);
    m_tasks->recoverInterrupted();
}

void WechatCleanPage::switchState(UiState state)
{
    m_state = state;
    if (state != UiState::Busy)
        m_work->finish();
    if (state == UiState::Busy)
        m_stack->setCurrentWidget(m_busy);
    else if (state == UiState::Results)
        m_stack->setCurrentWidget(m_resultPanel);
    else
        m_stack->setCurrentWidget(m_directories);
    m_header->setBrief(state == UiState::Results);
    m_directories->setHasResults(m_hasResults);
    m_recordKeeper->setBusy(state == UiState::Busy);
}

void WechatCleanPage::switchToBusy(const QString &title, const QString &text, bool mayStop,
                                   const QString &note)
{
    if (m_state != UiState::Busy)
        m_stateBeforeBusy = m_state;
    m_isStopping = false;
    m_busy->begin(title, text, mayStop, note);
    m_work->start();
    switchState(UiState::Busy);
}

void WechatCleanPage::showDirectories()
{
    switchState(m_profiles.isEmpty() ? UiState::NoDirectory : UiState::Directories);
}

QWidget *WechatCleanPage::noticeParent() const
{
    return m_recordKeeper->noticeParent();
}

void WechatCleanPage::onRecoveryFinished(const QStringList &restored, const QStringList &removed,
                                         const QStringList &errors, const QStringList &unavailable)
{
    const QString text = wechatclean::recoveryText(restored, removed, errors, unavailable);
    const QPointer<WechatCleanPage> self(this);
    const QString title = tr("已检查上次中断的清理");
    if (!errors.isEmpty() || !unavailable.isEmpty())
        AppNoticeDialog::showWarning(noticeParent(), title, text);
    else if (!text.isEmpty())
        AppNoticeDialog::showInfo(noticeParent(), title, text);
    if (self)
        detectProfiles();
}

void WechatCleanPage::detectProfiles()
{
    switchToBusy(tr("正在检测微信目录"), pleaseWait(), false);
    m_tasks->detectWechatDirs();
}

void WechatCleanPage::refreshDetectedProfiles()
{
    if (m_state != UiState::Busy)
        detectProfiles();
}

void WechatCleanPage::onDetectFinished(const QList<QVariant> &profiles)
{
    m_profiles.clear();
    wechatclean::addProfiles(profiles, &m_profiles);
    wechatclean::addProfiles(m_manualProfiles, &m_profiles);
    rebuildProfileCards();
    showDirectories();
}

void WechatCleanPage::rebuildProfileCards()
{
    m_directories->setProfiles(m_profiles, m_deselected);
}

void WechatCleanPage::addManualDirectory()
{
    noteAction("添加微信目录");
    const QPointer<WechatCleanPage> self(this);
    const QString folder =
        QFileDialog::getExistingDirectory(this, tr("选择微信目录"), QDir::homePath());
    if (self && !folder.isEmpty())
        addDirectory(folder);
}

void WechatCleanPage::addDirectory(const QString &folder)
{
    if (m_state == UiState::Busy)
        return;
    switchToBusy(tr("正在检测微信目录"), pleaseWait(), false);
    m_tasks->detectInRoot(QDir::cleanPath(folder));
}

void WechatCleanPage::onRootDetected(const QVariantList &profiles)
{
    wechatclean::addProfiles(profiles, &m_manualProfiles);
    for (const QVariant &profile : profiles)
        m_deselected.remove(wechatclean::profilePath(profile));
    if (wechatclean::addProfiles(profiles, &m_profiles) == 0)
        m_header->setStatus(tr("所选目录已在列表中。"));
    rebuildProfileCards();
    showDirectories();
}

void WechatCleanPage::removeProfileByPath(const QString &path)
{
    m_profiles = wechatclean::profilesExcept(m_profiles, {path});
    m_manualProfiles = wechatclean::profilesExcept(m_manualProfiles, {path});
    m_deselected.remove(path);
    rebuildProfileCards();
    if (m_state == UiState::Directories)
        showDirectories();
}

QVariantList WechatCleanPage::selectedProfileMaps() const
{
    return wechatclean::profilesExcept(m_profiles, m_deselected);
}

QStringList WechatCleanPage::selectedScanDirs() const
{
    return wechatclean::scanDirsOf(selectedProfileMaps());
}

qint64 WechatCleanPage::selectedEstimatedBytes() const
{
    return wechatclean::estimatedBytesOf(selectedProfileMaps());
}

void WechatCleanPage::startScan()
{
    noteAction("开始微信清理扫描");
    const QStringList dirs = selectedScanDirs();
    if (dirs.isEmpty()) {
        AppNoticeDialog::showInfo(this, tr("提示"), tr("请先选择至少一个微信目录。"));
        return;
    }
    startScanForDirs(dirs, selectedEstimatedBytes());
}

void WechatCleanPage::startScanForDirs(const QStringList &dirs, qint64 estimatedBytes)
{
    if (m_state == UiState::Busy)
        return;
    m_scanningDirs = dirs;
    m_scanned = wechatclean::CleanResults();
    m_header->setStatus(tr("正在扫描微信文件"));
    switchToBusy(tr("正在扫描微信文件"), pleaseWait(), true);
    m_tasks->startScan(dirs, m_settings.minSize, estimatedBytes);
}

void WechatCleanPage::stopCurrentTask()
{
    m_isStopping = true;
    m_busy->showStopping();
    m_tasks->requestStop();
}

void WechatCleanPage::onProgressChanged(int percent, const QString &text)
{
    if (m_state == UiState::Busy && !m_isStopping)
        showProgress(percent, text);
}

void WechatCleanPage::onDuplicateGroupsReady(const QList<QVariant> &groups)
{
    wechatclean::takeGroups(groups, &m_scanned);
    m_scanned.scanDirs = m_scanningDirs;
}

void WechatCleanPage::onScanFinished(bool ok, const QString &message, int)
{
    m_header->setStatus(message);
    m_work->finish(m_isStopping ? QString() : message);
    if (!ok) {
        // The results of an earlier scan stay reachable.
        m_scanned = wechatclean::CleanResults();
        showDirectories();
        AppNoticeDialog::showWarning(noticeParent(), tr("扫描已停止"), message);
        return;
    }
    m_results = m_scanned;
    m_scanned = wechatclean::CleanResults();
    m_hasResults = true;
    rebuildResultCards();
    switchState(UiState::Results);
    AppNoticeDialog::showSuccess(noticeParent(), tr("扫描完成"), message);
}

void WechatCleanPage::rebuildResultCards()
{
    m_resultPanel->setResults(&m_results, false);
}

void WechatCleanPage::refreshResults()
{
    m_resultPanel->setResults(&m_results, true);
}

QVariantMap WechatCleanPage::buildCleanActionForCard(QWidget *card) const
{
    const QVariant index = card ? card->property("groupIndex") : QVariant();
    const int group = index.isValid() ? index.toInt() : -1;
    return group >= 0 && group < m_results.groups.size()
               ? wechatclean::buildAction(m_results.groups.at(group))
               : QVariantMap();
}

QVariantList WechatCleanPage::buildAllCleanActions() const
{
    return wechatclean::buildAllActions(m_results);
}

void WechatCleanPage::cleanCard(QWidget *card)
{
    noteAction("清理重复文件组");
    const QVariantMap action = buildCleanActionForCard(card);
    if (action.isEmpty())
        AppNoticeDialog::showInfo(this, tr("提示"), tr("当前组没有可合并的副本。"));
    else
        preflight({action});
}

void WechatCleanPage::cleanAll()
{
    noteAction("一键清理重复文件");
    const QVariantList actions = buildAllCleanActions();
    if (actions.isEmpty())
        AppNoticeDialog::showInfo(this, tr("提示"), tr("当前没有可清理的重复文件组。"));
    else
        preflight(actions);
}

void WechatCleanPage::preflight(const QVariantList &actions)
{
    m_pendingActions = actions;
    m_mergeableActions.clear();
    m_elsewhere.clear();
    switchToBusy(tr("正在检查清理条件"), pleaseWait(), false);
    m_tasks->runPreflightCheck(actions);
}

void WechatCleanPage::onMergeableActionsReady(const QVariantList &actions,
                                              const QStringList &elsewhere)
{
    m_mergeableActions = actions;
    m_elsewhere = elsewhere;
}

void WechatCleanPage::onPreflightFinished(bool ok, const QStringList &warnings,
                                          const QStringList &issues)
{
    switchState(UiState::Results);
    const QVariantList mergeable = m_mergeableActions;
    m_mergeableActions.clear();
    if (ok) {
        confirmAndExecutePendingActions(warnings);
        return;
    }
    m_pendingActions = mergeable;
    if (!mergeable.isEmpty()) {
        confirmAndExecutePendingActions(warnings + wechatclean::leftOutLines(m_elsewhere));
        return;
    }
    AppNoticeDialog::showWarning(noticeParent(), tr("无法执行清理"),
                                 wechatclean::joinedLines(issues));
}

void WechatCleanPage::confirmAndExecutePendingActions(const QStringList &warnings)
{
    const QVariantList actions = m_pendingActions;
    m_pendingActions.clear();
    const QPointer<WechatCleanPage> self(this);
    const QString text = wechatclean::confirmCleanText(wechatclean::totalsOf(actions), warnings);
    const bool agreed =
        AppNoticeDialog::confirm(noticeParent(), tr("确认清理"), text, tr("确认"), tr("取消"));
    if (!agreed || !self || m_state == UiState::Busy)
        return;
    switchToBusy(tr("正在执行清理"), pleaseWait(), true,
                 tr("停止后，正在处理的文件会先处理完；已合并的部分可在“清理记录”中撤销。"));
    m_tasks->executeClean(actions);
}

void WechatCleanPage::onCleanProgressChanged(int done, int total)
{
    if (m_state != UiState::Busy || m_isStopping)
        return;
    const QString text =
        tr("正在执行清理，%1/%2").arg(QString::number(done), QString::number(total));
    showProgress(total > 0 ? static_cast<int>(qint64(done) * 100 / total) : -1, text);
}

void WechatCleanPage::showProgress(int percent, const QString &text)
{
    m_work->setFraction(percent / 100.0);
    const QString timeLeft = m_work->timeLeft();
    m_busy->setProgress(percent,
                        timeLeft.isEmpty() ? text : QStringLiteral("%1 · %2").arg(text, timeLeft));
}

void WechatCleanPage::onCleanFinished(bool ok, int mergedCount, qint64 reclaimedBytes,
                                      const QString &sessionId, const QStringList &errors)
{
    m_work->finish(ok ? tr("清理完成") : tr("清理未完成"));
    if (!ok) {
        switchState(UiState::Results);
        m_header->setStatus(tr("清理未完成"));
        AppNoticeDialog::showWarning(noticeParent(), tr("清理未完成"),
                                     errors.isEmpty() ? tr("没有文件被成功处理。")
                                                      : wechatclean::joinedLines(errors));
        return;
    }
    m_cleanOutcome.message =
        wechatclean::cleanDoneText(mergedCount, reclaimedBytes, m_isStopping, errors);
    m_cleanOutcome.shown =
        wechatclean::cleanOutcome(mergedCount, reclaimedBytes, m_isStopping, errors.size());
    m_cleanOutcome.hasErrors = !errors.isEmpty();
    applyCleanSessionToCurrentGroups(sessionId);
}

void WechatCleanPage::applyCleanSessionToCurrentGroups(const QString &sessionId)
{
    // Goes on in onRecordRead().
    m_cleanOutcome.sessionId = sessionId;
    m_tasks->readRecord(sessionId);
}

void WechatCleanPage::onRecordRead(const QString &sessionId, const QVariantMap &record)
{
    if (sessionId != m_cleanOutcome.sessionId)
        return;
    const CleanOutcome outcome = m_cleanOutcome;
    m_cleanOutcome = CleanOutcome();
    QString message = outcome.message;
    if (record.isEmpty())
        message += tr("\n\n无法读取本次清理的记录，下面的列表可能与磁盘不一致，请重新扫描。");
    else
        wechatclean::applyRecord(record, &m_results);
    m_results.outcome = outcome.shown;
    refreshResults();
    switchState(UiState::Results);
    m_header->setStatus(outcome.shown.title);
    refreshRecordList();
    if (record.isEmpty() || outcome.hasErrors)
        AppNoticeDialog::showWarning(noticeParent(), tr("清理完成"), message);
    else
        AppNoticeDialog::showSuccess(noticeParent(), tr("清理完成"), message);
}

void WechatCleanPage::openFolder(const QString &path)
{
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(folder)))
        AppNoticeDialog::showWarning(this, tr("无法打开所在目录"), tr("没有可以打开此目录的程序。"),
                                     folder);
}

void WechatCleanPage::openHistoryDialog()
{
    m_recordKeeper->openDialog();
}

void WechatCleanPage::refreshRecordList()
{
    m_recordKeeper->refresh();
}

void WechatCleanPage::triggerUndoForRecord(const QString &sessionId)
{
    if (m_state == UiState::Busy) {
        AppNoticeDialog::showInfo(noticeParent(), tr("暂时无法撤销"), RecordKeeper::busyText());
        return;
    }
    const QVariantMap record = m_recordKeeper->record(sessionId);
    const QPointer<WechatCleanPage> self(this);
    const bool agreed =
        AppNoticeDialog::confirm(noticeParent(), tr("确认撤销"),
                                 wechatclean::confirmUndoText(record), tr("确认"), tr("取消"));
    if (!agreed || !self || m_state == UiState::Busy)
        return;
    switchToBusy(tr("正在撤销清理"), tr("正在恢复为独立副本..."), false,
                 tr("撤销不能中途停止，请不要关闭程序。"));
    m_tasks->undoCleanSession(sessionId);
}

void WechatCleanPage::onUndoFinished(bool ok, const QString &, int restoredCount,
                                     const QStringList &errors)
{
    m_header->setStatus(tr("撤销未完成"));
    m_work->finish(ok ? tr("撤销完成") : tr("撤销未完成"));
    if (ok) {
        m_results.outcome = wechatclean::undoOutcome(restoredCount, errors.size());
        const wechatclean::ResultOutcome &outcome = m_results.outcome;
        // The results show it all.
        const bool isShown = m_stateBeforeBusy == UiState::Results;
        m_header->setStatus(isShown ? outcome.title : outcome.title + tr("：") + outcome.text);
        refreshResults();
    }
    switchState(m_stateBeforeBusy);
    refreshRecordList();
    if (!ok)
        AppNoticeDialog::showWarning(noticeParent(), tr("撤销未完成"),
                                     errors.isEmpty() ? tr("没有文件被成功恢复。")
                                                      : wechatclean::joinedLines(errors));
    else if (errors.isEmpty())
        AppNoticeDialog::showSuccess(noticeParent(), tr("撤销完成"),
                                     wechatclean::undoDoneText(restoredCount, errors));
    else
        AppNoticeDialog::showWarning(noticeParent(), tr("撤销完成"),
                                     wechatclean::undoDoneText(restoredCount, errors));
}

void WechatCleanPage::openSettings()
{
    noteAction("修改微信清理设置");
    const QPointer<WechatCleanSettingsDialog> dialog(new WechatCleanSettingsDialog(this));
    dialog->setSettings(m_settings);
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return; // The page went with it.
    if (accepted)
        m_settings = dialog->settings();
    delete dialog;
}
