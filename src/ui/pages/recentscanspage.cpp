#include "ui/pages/recentscanspage.h"

#include "core/controllers/recoverycontroller.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/celldelegate.h"
#include "ui/common/emptystate.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/recoveryhistorydialog.h"
#include "ui/pages/recoveryworkflowwindow.h"
#include "ui/pages/scanresultspage.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QShowEvent>
#include <QSortFilterProxyModel>
#include <QStackedWidget>
#include <QTableView>
#include <QTimer>

using core::controllers::RecoveryController;
using ui::common::AppNoticeDialog;
using ui::common::CellDelegate;
using ui::common::CellTableModel;
using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kListLimit = 50;
constexpr int kSearchWidth = 420;
enum Column { IdColumn, DeviceColumn, TimeColumn, CountColumn, ModeColumn, ActionColumn };

QStringList actionTexts()
{
    return {RecentScansPage::tr("查看"), RecentScansPage::tr("恢复记录"),
            RecentScansPage::tr("删除")};
}

} // namespace

RecentScansPage::RecentScansPage(RecoveryController *controller,
                                 RecoveryWorkflowWindow *workflowWindow, QWidget *parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_window(workflowWindow)
    , m_sessions(new CellTableModel({{tr("扫描会话")},
                                     {tr("分区名")},
                                     {tr("扫描时间")},
                                     {tr("文件数"), true},
                                     {tr("扫描模式")},
                                     {tr("操作")}},
                                    this))
    , m_shown(new QSortFilterProxyModel(this))
{
    setObjectName(QStringLiteral("RecentScansPage"));
    m_sessions->setActions(actionTexts(), DeleteAction);
    m_shown->setSourceModel(m_sessions);
    m_shown->setFilterKeyColumn(-1); // All of them; the buttons are no text.
    m_shown->setFilterCaseSensitivity(Qt::CaseInsensitive);

    m_message = new WrapLabel(this);
    m_message->setObjectName(QStringLiteral("RecentScansMessage"));
    m_message->hide();
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("RecentScansStatus"));
    m_status->setProperty("textRole", QStringLiteral("subtle"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kCardGap);
    layout->setSpacing(metrics::kCardGap);
    layout->addLayout(buildHeader());
    layout->addLayout(buildSearchRow());
    layout->addWidget(m_message);
    layout->addWidget(buildViews(), 1);
    layout->addWidget(m_status);
    wireController();
    applyFilter();
}

QHBoxLayout *RecentScansPage::buildHeader()
{
    auto *title = new QLabel(tr("最近扫描"), this);
    title->setObjectName(QStringLiteral("PageTitle"));
    auto *subtitle = new WrapLabel(tr("查看历史扫描会话，并可按关键字快速过滤。"), this);
    subtitle->setObjectName(QStringLiteral("SubtleText"));
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(title);
    texts->addWidget(subtitle);
    auto *row = new QHBoxLayout;
    row->addLayout(texts, 1);
    return row;
}

QHBoxLayout *RecentScansPage::buildSearchRow()
{
    m_search = new QLineEdit(this);
    ui::common::setKeyRole(m_search, ui::common::KeyRole::Search);
    m_search->setObjectName(QStringLiteral("RecentScansSearch"));
    m_search->setPlaceholderText(tr("搜索会话编号 / 分区名 / 扫描模式..."));
    m_search->setMaximumWidth(kSearchWidth);
    m_refresh = new QPushButton(tr("刷新"), this);
    ui::common::setKeyRole(m_refresh, ui::common::KeyRole::Refresh);
    m_refresh->setObjectName(QStringLiteral("RecentScansRefresh"));
    connect(m_search, &QLineEdit::textChanged, this, &RecentScansPage::applyFilter);
    connect(m_refresh, &QPushButton::clicked, this, &RecentScansPage::refresh);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_search, 1);
    row->addStretch(1);
    row->addWidget(m_refresh);
    return row;
}

QTableView *RecentScansPage::buildTable()
{
    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("RecentScansTable"));
    CellDelegate *delegate = ui::common::setUpCellTable(m_table);
    delegate->setElideMode(DeviceColumn, Qt::ElideMiddle);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setTabKeyNavigation(false);
    m_table->setModel(m_shown);
    QHeaderView *header = m_table->horizontalHeader();
    header->setSectionsClickable(false);
    header->setSectionResizeMode(IdColumn, QHeaderView::Stretch);
    header->resizeSection(DeviceColumn,
                          CellDelegate::textColumnWidth(QStringLiteral("/dev/nvme0n1p2")));
    header->resizeSection(TimeColumn,
                          CellDelegate::textColumnWidth(QStringLiteral("2000-00-00 00:00:00")));
    header->resizeSection(CountColumn, CellDelegate::textColumnWidth(QStringLiteral("000000")));
    header->resizeSection(ModeColumn, CellDelegate::textColumnWidth(tr("快速扫描")));
    header->resizeSection(ActionColumn, CellDelegate::actionColumnWidth(actionTexts()));
    connect(delegate, &CellDelegate::actionTriggered, this, &RecentScansPage::onActionTriggered);
    connect(m_table, &QTableView::activated, this,
            [this](const QModelIndex &index) { onActionTriggered(index, ViewAction); });
    return m_table;
}

QWidget *RecentScansPage::buildViews()
{
    m_empty = new EmptyState(IconWidget::History, this);
    connect(m_empty, &EmptyState::actionTriggered, this, [this] {
        if (m_sessions->rowCount() > 0)
            m_search->clear();
        else
            refresh();
    });
    m_views = new QStackedWidget(this);
    m_views->addWidget(buildTable());
    m_views->addWidget(m_empty);
    return m_views;
}

void RecentScansPage::wireController()
{
    if (!m_controller)
        return;
    RecoveryController *source = m_controller;
    connect(source, &RecoveryController::sessionListReceived, this,
            &RecentScansPage::onSessionListReceived);
    connect(source, &RecoveryController::sessionDetailReceived, this,
            &RecentScansPage::onSessionDetailReceived);
    connect(source, &RecoveryController::sessionFilesReceived, this,
            &RecentScansPage::onSessionFilesReceived);
    connect(source, &RecoveryController::recoveryTaskDetailReceived, this,
            &RecentScansPage::onRecoveryTaskDetailReceived);
    connect(source, &RecoveryController::sessionDeleted, this, &RecentScansPage::onSessionDeleted);
    connect(source, &RecoveryController::queryFailed, this, &RecentScansPage::onQueryFailed);
}

void RecentScansPage::refresh()
{
    if (!m_controller)
        return;
    m_needsReload = m_isLoading;
    if (m_isLoading)
        return;
    m_isLoading = true;
    m_refresh->setEnabled(false);
    showEmptyState();
    m_controller->fetchSessionList(kListLimit, 0);
}

void RecentScansPage::onSessionListReceived(const QJsonArray &sessions)
{
    m_isLoading = false;
    m_isListed = true;
    m_listFailure.clear();
    m_refresh->setEnabled(true);
    showMessage(QString(), false);
    const QString current = m_sessions->idOf(m_shown->mapToSource(m_table->currentIndex()).row());
    m_sessions->setRows(recentscans::sessionRows(sessions));
    applyFilter();
    for (int row = 0; row < m_shown->rowCount(); ++row) {
        if (m_wantedRow < 0 && m_shown->index(row, IdColumn).data().toString() == current)
            m_wantedRow = row;
    }
    if (m_wantedRow >= 0 && m_shown->rowCount() > 0)
        m_table->selectRow(qMin(m_wantedRow, m_shown->rowCount() - 1));
    m_wantedRow = -1;
    if (m_needsReload)
        refresh();
}

void RecentScansPage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // Scans that ended meanwhile. The first list comes with the connection.
    if (m_isListed && !event->spontaneous())
        refresh();
}

void RecentScansPage::applyFilter()
{
    m_shown->setFilterFixedString(m_search->text().trimmed());
    m_status->setText(
        tr("显示 %1 / %2 条记录").arg(m_shown->rowCount()).arg(m_sessions->rowCount()));
    showEmptyState();
}

void RecentScansPage::showEmptyState()
{
    m_views->setCurrentIndex(m_shown->rowCount() > 0 ? 0 : 1);
    if (m_sessions->rowCount() > 0) {
        m_empty->setIcon(IconWidget::Search);
        m_empty->setTone(EmptyState::Tone::Plain);
        m_empty->setTexts(tr("没有匹配的扫描会话"), tr("换一个关键字，或清除搜索文字。"));
        m_empty->setActionText(tr("清除搜索"));
        return;
    }
    m_empty->setIcon(IconWidget::History);
    m_empty->setActionText(QString());
    if (m_isLoading) {
        m_empty->setTone(EmptyState::Tone::Busy);
        m_empty->setTexts(tr("正在读取扫描会话..."), QString());
    } else if (!m_listFailure.isEmpty()) {
        m_empty->setTone(EmptyState::Tone::Error);
        m_empty->setTexts(tr("无法读取扫描会话"), m_listFailure);
        m_empty->setActionText(tr("重新读取"));
    } else if (!m_isListed) {
        m_empty->setTone(EmptyState::Tone::Plain);
        m_empty->setTexts(tr("等待恢复服务"), tr("连接后会自动读取扫描会话。"));
        m_empty->setActionText(tr("重新读取"));
    } else {
        m_empty->setTone(EmptyState::Tone::Plain);
        m_empty->setTexts(tr("还没有扫描会话"), tr("完成一次扫描后，会话会显示在这里。"));
    }
}

void RecentScansPage::showMessage(const QString &message, bool isError)
{
    ui::common::setStyleProperty(m_message, "tone", isError ? QStringLiteral("error") : QString());
    m_message->setText(message);
    m_message->setVisible(!message.isEmpty());
}

void RecentScansPage::onQueryFailed(const QString &method, const QString &id,
                                    const QString &message)
{
    if (method == QLatin1String("session.list")) {
        m_isLoading = false;
        m_needsReload = false;
        m_refresh->setEnabled(true);
        m_wantedRow = -1;
        m_listFailure = message;
        showEmptyState();
        // Without rows the empty state says it.
        if (m_sessions->rowCount() > 0)
            showMessage(tr("刷新失败：%1").arg(message), true);
    } else if (method == QLatin1String("recovery.getDetail")) {
        if (m_history)
            m_history->setRecoveryTaskFailed(id, message);
    } else if (!id.isEmpty() && id == m_pending.sessionId()) {
        m_pending.clear();
        showMessage(tr("无法打开会话 %1：%2").arg(id, message), true);
    } else if (!id.isEmpty() && id == m_historySession &&
               method == QLatin1String("session.getDetail")) {
        m_historySession.clear();
        showMessage(tr("无法读取会话 %1 的恢复记录：%2").arg(id, message), true);
    }
}

void RecentScansPage::onActionTriggered(const QModelIndex &index, int action)
{
    const QString id = index.sibling(index.row(), IdColumn).data().toString();
    if (action == ViewAction)
        requestViewSession(id);
    else if (action == HistoryAction)
        requestViewRecoveryHistory(id);
    else
        requestDeleteSession(id, index.row());
}

void RecentScansPage::requestViewSession(const QString &sessionId)
{
    if (!m_controller || !m_window || !mayReplaceShownWork())
        return;
    m_pending.begin(sessionId);
    showMessage(tr("正在打开会话 %1...").arg(sessionId), false);
    m_controller->fetchSessionDetail(sessionId);
    m_controller->fetchSessionFiles(sessionId);
}

bool RecentScansPage::mayReplaceShownWork()
{
    using Work = RecoveryWorkflowWindow::Work;
    const Work work = m_window->workUnderWay();
    if (work == Work::None)
        return true;
    const QString title = work == Work::Scan ? tr("扫描仍在进行") : tr("恢复仍在进行");
    const QString message =
        tr("打开历史会话会替换“扫描与恢复”窗口中的内容。正在进行的任务会在服务中继续，"
           "但窗口不再显示它的进度。是否继续？");
    const QPointer<RecentScansPage> self(this);
    const bool agreed = AppNoticeDialog::confirm(this, title, message, tr("继续打开"), tr("取消"));
    return agreed && self && m_controller && m_window;
}

void RecentScansPage::onSessionDetailReceived(const QString &sessionId, const QJsonObject &detail)
{
    if (m_pending.takeDetail(sessionId, detail))
        tryOpenPendingSession();
    if (!m_historySession.isEmpty() && sessionId == m_historySession)
        openHistory(sessionId, detail);
}

void RecentScansPage::onSessionFilesReceived(const QString &sessionId, const QJsonArray &files)
{
    if (m_pending.takeFiles(sessionId, files))
        tryOpenPendingSession();
}

void RecentScansPage::tryOpenPendingSession()
{
    if (!m_pending.isComplete() || !m_window)
        return;
    const recentscans::PendingSession session = m_pending;
    m_pending.clear();
    showMessage(QString(), false);
    const QJsonObject &detail = session.detail();
    ScanResultsPage *page = m_window->scanPage();
    page->initForScan(detail.value(QLatin1String("devicePath")).toString(),
                      detail.value(QLatin1String("fileSystem")).toString(), session.sessionId());
    page->addFiles(session.files());
    page->onScanCompleted(recentscans::summaryOf(detail));
    m_window->openScanPage();
}

void RecentScansPage::requestViewRecoveryHistory(const QString &sessionId)
{
    if (!m_controller)
        return;
    m_historySession = sessionId;
    m_controller->fetchSessionDetail(sessionId);
}

void RecentScansPage::openHistory(const QString &sessionId, const QJsonObject &detail)
{
    m_historySession.clear();
    // A closed one stays for a moment, until the event loop deletes it.
    if (!m_history || !m_history->isVisible()) {
        m_history = new RecoveryHistoryDialog(this);
        m_history->setAttribute(Qt::WA_DeleteOnClose);
        if (m_controller)
            connect(m_history, &RecoveryHistoryDialog::recoveryTaskRequested, m_controller,
                    &RecoveryController::fetchRecoveryTaskDetail);
    }
    m_history->setSessionInfo(sessionId, detail.value(QLatin1String("devicePath")).toString());
    m_history->setRecoveryTasks(detail.value(QLatin1String("recoveryTasks")).toArray());
    m_history->show();
}

void RecentScansPage::onRecoveryTaskDetailReceived(const QString &recoveryId,
                                                   const QJsonObject &detail)
{
    if (m_history)
        m_history->setRecoveryTaskDetail(recoveryId, detail);
}

void RecentScansPage::requestDeleteSession(const QString &sessionId, int row)
{
    if (!m_controller)
        return;
    const QPointer<RecentScansPage> self(this);
    const bool agreed = AppNoticeDialog::confirmDestruction(
        this, tr("确认删除"), tr("确定要删除会话 %1 吗？此操作不可撤销。").arg(sessionId),
        tr("确认"));
    if (!agreed || !self || !m_controller)
        return;
    m_wantedRow = row;
    m_controller->deleteSession(sessionId);
}

void RecentScansPage::onSessionDeleted(const QString &sessionId, bool success)
{
    if (success) {
        refresh();
        return;
    }
    m_wantedRow = -1;
    // Not from within the slot: it runs while the link reads, and no more is read until it returns.
    QTimer::singleShot(0, this, [this, sessionId] {
        AppNoticeDialog::showError(this, tr("删除失败"), tr("无法删除会话 %1").arg(sessionId));
    });
}
