#include "ui/pages/filesharepage.h"

#include "share/filesharecontroller.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/emptystate.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/styletemplate.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/fileshareconfirmdialog.h"
#include "ui/pages/filesharedetaildialog.h"
#include "ui/pages/filesharepage/busynote.h"
#include "ui/pages/filesharepage/filedroptarget.h"
#include "ui/pages/filesharepage/operationgate.h"
#include "ui/pages/filesharepage/sessiontable.h"
#include "ui/pages/filesharepage/sharepathlist.h"
#include "ui/pages/filesharepage/shareportdialog.h"
#include "ui/pages/filesharepage/sharerules.h"

#include <QEvent>
#include <QPushButton>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

using fileshare::OperationGate;
using fileshare::SessionTable;
using fileshare::SharePathChooser;
using fileshare::SharePathList;
using ui::common::AppNoticeDialog;
using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kTouchedDelayMs = 250;
constexpr int kPendingRows = 3;
constexpr int kListFrame = 10; ///< Padding and border of the list, above and below.

QString pageSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QListView#SharePendingList { border: 1px dashed @textMuted@; }
QListView#SharePendingList[filled="true"] { border: 1px solid @border@; }
QListView#SharePendingList[dropping="true"] { border: 2px solid @accent@; padding: 3px;
    background: @activeNavBackground@; }
QLabel#ShareDropHint { color: @textMuted@; }
QLabel#ShareDropHint[dropping="true"] { color: @linkText@; }
)qss"));
}

QPushButton *toolButton(const QString &text, const char *name, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(QLatin1String(name));
    return button;
}

QLabel *sectionTitle(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setObjectName(QStringLiteral("SectionTitle"));
    return label;
}

QLabel *subtleLabel(const char *name, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setObjectName(QLatin1String(name));
    label->setProperty("textRole", QStringLiteral("subtle"));
    label->setTextFormat(Qt::PlainText);
    return label;
}

} // namespace

FileSharePage::FileSharePage(FileShareController *controller, QWidget *parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_chooser(SharePathChooser::dialogs())
    , m_touchedTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("FileSharePage"));
    setStyleSheet(pageSheet());
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    layout->setSpacing(metrics::kCardGap);
    layout->addLayout(buildHeader());
    layout->addWidget(buildPendingCard());
    layout->addWidget(buildRecords(), 1);
    m_gate = new OperationGate({m_pendingCard, m_records}, this);
    connect(m_gate, &OperationGate::changed, this, &FileSharePage::onBusyChanged);
    wireDrops();
    wireController();
    showPendingState();
    showRecordsState(0, 0);
}

FileSharePage::~FileSharePage() = default;

QBoxLayout *FileSharePage::buildHeader()
{
    auto *title = new QLabel(tr("文件分享"), this);
    title->setObjectName(QStringLiteral("PageTitle"));
    m_busyNote = new fileshare::BusyNote(this);
    auto *row = new QHBoxLayout;
    row->addWidget(title, 1);
    row->addWidget(m_busyNote);
    auto *note = new WrapLabel(tr("共享运行期间，局域网内拿到链接的任何人都能打开这些文件；"
                                  "设置密码后需输入密码，传输内容不加密。"),
                               this);
    note->setObjectName(QStringLiteral("ShareExposureNote"));
    note->setProperty("textRole", QStringLiteral("subtle"));
    auto *column = new QVBoxLayout;
    column->setSpacing(metrics::kFieldGap / 2);
    column->addLayout(row);
    column->addWidget(note);
    return column;
}

QFrame *FileSharePage::buildPendingCard()
{
    m_pendingCard = new QFrame(this);
    m_pendingCard->setObjectName(QStringLiteral("SharePendingCard"));
    m_pendingCard->setProperty("card", true);
    m_pending = new SharePathList(m_pendingCard);
    m_pending->setObjectName(QStringLiteral("SharePendingList"));
    m_pending->setAccessibleName(tr("选择要共享的文件或文件夹"));
    m_pending->setFixedHeight(kPendingRows * metrics::rowControlHeight() + kListFrame);
    m_pending->viewport()->installEventFilter(this);
    m_dropHint =
        new QLabel(tr("拖拽文件或文件夹到这里\n或使用上方按钮添加"), m_pending->viewport());
    m_dropHint->setObjectName(QStringLiteral("ShareDropHint"));
    m_dropHint->setAlignment(Qt::AlignCenter);
    m_dropHint->setAttribute(Qt::WA_TransparentForMouseEvents);

    auto *column = new QVBoxLayout(m_pendingCard);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(buildPendingTools());
    column->addWidget(m_pending);
    column->addLayout(buildPendingFooter());
    connect(m_pending, &SharePathList::pathsChanged, this, [this] { showPendingState(); });
    connect(m_pending, &QListWidget::itemSelectionChanged, this,
            [this] { m_removeSelected->setEnabled(!m_pending->selectedItems().isEmpty()); });
    return m_pendingCard;
}

QBoxLayout *FileSharePage::buildPendingTools()
{
    QPushButton *addFiles = toolButton(tr("添加文件"), "ShareAddFilesButton", m_pendingCard);
    QPushButton *addFolder = toolButton(tr("添加文件夹"), "ShareAddFolderButton", m_pendingCard);
    m_removeSelected = toolButton(tr("移除选中"), "ShareRemoveSelectedButton", m_pendingCard);
    m_removeSelected->setEnabled(false);
    m_clear = toolButton(tr("清空"), "ShareClearButton", m_pendingCard);
    connect(addFiles, &QPushButton::clicked, this, &FileSharePage::onAddFiles);
    connect(addFolder, &QPushButton::clicked, this, &FileSharePage::onAddFolder);
    connect(m_removeSelected, &QPushButton::clicked, this, &FileSharePage::onRemoveSelected);
    connect(m_clear, &QPushButton::clicked, this, &FileSharePage::onClearFiles);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(sectionTitle(tr("选择要共享的文件或文件夹"), m_pendingCard), 1);
    for (QPushButton *button : {addFiles, addFolder, m_removeSelected, m_clear})
        row->addWidget(button);
    return row;
}

QBoxLayout *FileSharePage::buildPendingFooter()
{
    m_pendingStatus = subtleLabel("SharePendingStatus", m_pendingCard);
    QPushButton *port = toolButton(tr("端口设置"), "SharePortSettingsButton", m_pendingCard);
    m_start = toolButton(tr("开始共享"), "ShareStartButton", m_pendingCard);
    ui::common::setButtonRole(m_start, QStringLiteral("primary"));
    connect(port, &QPushButton::clicked, this, &FileSharePage::onOpenShareSettings);
    connect(m_start, &QPushButton::clicked, this, &FileSharePage::onStartShare);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_pendingStatus, 1);
    row->addWidget(port);
    row->addWidget(m_start);
    return row;
}

QWidget *FileSharePage::buildRecords()
{
    m_records = new QWidget(this);
    m_records->setObjectName(QStringLiteral("ShareRecords"));
    m_networkHint = new WrapLabel(
        tr("未检测到可用的局域网地址，其他设备暂时无法访问共享，请检查网络连接。"), m_records);
    m_networkHint->setObjectName(QStringLiteral("ShareNetworkHint"));
    m_networkHint->setProperty("tone", QStringLiteral("error"));
    m_networkHint->hide();
    m_table = new SessionTable(m_records);
    auto *empty = new EmptyState(IconWidget::Share, m_records);
    empty->setObjectName(QStringLiteral("ShareRecordsEmpty"));
    if (m_controller) {
        empty->setTexts(tr("还没有共享记录"), tr("添加文件并开始共享后，会在这里留下记录。"));
    } else {
        empty->setTone(EmptyState::Tone::Error);
        empty->setTexts(tr("文件分享不可用"), tr("请重新启动程序后再试。"));
    }
    m_recordViews = new QStackedWidget(m_records);
    m_recordViews->addWidget(m_table);
    m_recordViews->addWidget(empty);
    connect(m_table, &SessionTable::actionRequested, this, &FileSharePage::onSessionAction);
    connect(m_table, &QTableView::doubleClicked, this, [this](const QModelIndex &index) {
        onSessionDoubleClicked(index.row(), index.column());
    });

    auto *column = new QVBoxLayout(m_records);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(buildRecordTools());
    column->addWidget(m_networkHint);
    column->addWidget(m_recordViews, 1);
    return m_records;
}

QBoxLayout *FileSharePage::buildRecordTools()
{
    m_recordsStatus = subtleLabel("ShareRecordsStatus", m_records);
    m_stopAll = toolButton(tr("全部停止"), "ShareStopAllButton", m_records);
    m_startAll = toolButton(tr("全部开始"), "ShareStartAllButton", m_records);
    m_removeAll = toolButton(tr("全部删除"), "ShareRemoveAllButton", m_records);
    ui::common::setButtonRole(m_removeAll, QStringLiteral("danger"));
    connect(m_stopAll, &QPushButton::clicked, this, &FileSharePage::onStopAllSessions);
    connect(m_startAll, &QPushButton::clicked, this, &FileSharePage::onStartAllSessions);
    connect(m_removeAll, &QPushButton::clicked, this, &FileSharePage::onRemoveAllSessions);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(sectionTitle(tr("共享记录"), m_records));
    row->addWidget(m_recordsStatus, 1);
    for (QPushButton *button : {m_stopAll, m_startAll, m_removeAll})
        row->addWidget(button);
    return row;
}

void FileSharePage::wireDrops()
{
    m_dropTarget = new fileshare::FileDropTarget(this);
    connect(m_dropTarget, &fileshare::FileDropTarget::hovered, this, [this](bool isOver) {
        ui::common::setStyleProperty(m_pending, "dropping", isOver);
        ui::common::setStyleProperty(m_dropHint, "dropping", isOver);
    });
    connect(m_dropTarget, &fileshare::FileDropTarget::dropped, this,
            &FileSharePage::addPathsToList);
}

void FileSharePage::wireController()
{
    m_touchedTimer->setSingleShot(true);
    m_touchedTimer->setInterval(kTouchedDelayMs);
    connect(m_touchedTimer, &QTimer::timeout, this, &FileSharePage::updateTouchedSessions);
    if (!m_controller) {
        m_pendingCard->setEnabled(false);
        m_dropTarget->setActive(false);
        return;
    }
    connect(m_controller, &FileShareController::sessionListChanged, this,
            &FileSharePage::onSessionListChanged);
    connect(m_controller, &FileShareController::accessLogUpdated, this,
            &FileSharePage::onAccessLogUpdated);
}

void FileSharePage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    flushDeferredSessionRefresh();
}

bool FileSharePage::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_pending->viewport() && event->type() == QEvent::Resize)
        updateDropHintGeometry();
    return QWidget::eventFilter(watched, event);
}

bool FileSharePage::canOperate() const
{
    return m_controller && !m_gate->isBusy();
}

void FileSharePage::updateDropHintGeometry()
{
    // The filter of the list is there before the hint.
    if (m_dropHint)
        m_dropHint->setGeometry(m_pending->viewport()->rect());
}

void FileSharePage::onAddFiles()
{
    addPathsToList(fileshare::chooseFiles(m_chooser, this));
}

void FileSharePage::onAddFolder()
{
    addPathsToList(fileshare::chooseFolder(m_chooser, this));
}

void FileSharePage::addPathsToList(const QStringList &paths)
{
    const int added = m_pending->addPaths(paths);
    showPendingState(paths.size() - added);
}

void FileSharePage::onRemoveSelected()
{
    m_pending->removeSelected();
}

void FileSharePage::onClearFiles()
{
    m_pending->clearPaths();
}

void FileSharePage::showPendingState(int ignored)
{
    const int count = m_pending->count();
    m_dropHint->setVisible(count == 0);
    updateDropHintGeometry();
    ui::common::setStyleProperty(m_pending, "filled", count > 0);
    m_clear->setEnabled(count > 0);
    m_pendingStatus->setText(
        fileshare::pendingText(count, ignored, m_controller ? m_controller->sharePort() : 0));
    updateStartButtonState();
}

void FileSharePage::updateStartButtonState()
{
    m_start->setEnabled(m_pending->count() > 0);
}

void FileSharePage::onOpenShareSettings()
{
    if (!canOperate())
        return;
    // On the heap, since the page may go with its window while the dialog is open.
    const QPointer<fileshare::SharePortDialog> dialog = new fileshare::SharePortDialog(
        m_controller->sharePort(), m_controller->canChangeSharePort(), this);
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return;
    const int port = dialog->port();
    dialog->deleteLater();
    bool changed = false;
    QString error;
    if (!accepted || !m_gate->run(tr("正在更新共享端口..."), [this, port, &changed, &error] {
            changed = m_controller->setSharePort(port, &error);
        }))
        return;
    showPendingState();
    if (!changed) {
        AppNoticeDialog::showError(this, tr("端口修改失败"),
                                   error.isEmpty() ? tr("无法更新共享端口。") : error);
        return;
    }
    AppNoticeDialog::showSuccess(
        this, tr("端口已更新"), tr("新的共享端口已生效，后续新建或重新启动的共享都会使用该端口。"));
}

void FileSharePage::onStartShare()
{
    const QStringList paths = m_pending->paths();
    if (!canOperate() || paths.isEmpty())
        return;
    const QPointer<FileShareConfirmDialog> dialog = new FileShareConfirmDialog(m_controller, this);
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return;
    dialog->deleteLater();
    QString id;
    if (!accepted || !m_gate->run(tr("正在启动共享..."), [this, paths, dialog, &id] {
            id = m_controller->createShare(paths, dialog->password(), dialog->durationMin(),
                                           dialog->maxClients(), dialog->accessMode());
        }))
        return;
    if (id.isEmpty()) {
        AppNoticeDialog::showError(this, tr("共享失败"),
                                   tr("无法启动文件共享，请检查端口是否被占用。"));
        return;
    }
    m_pending->clearPaths();
    showLinks(tr("共享已启动"), id);
}

void FileSharePage::showLinks(const QString &title, const QString &id)
{
    const QStringList urls = m_controller->shareUrls(id);
    // A single link can be copied at once; several are chosen from in the details.
    AppNoticeDialog::showSuccess(this, title, fileshare::linksText(urls),
                                 urls.size() == 1 ? urls.first() : QString());
}

void FileSharePage::onSessionListChanged()
{
    m_refreshDeferred = true;
    if (isVisible() && !m_gate->isBusy())
        flushDeferredSessionRefresh();
}

void FileSharePage::flushDeferredSessionRefresh()
{
    if (m_refreshDeferred)
        refreshSessionList();
}

void FileSharePage::refreshSessionList()
{
    if (!m_controller)
        return;
    m_refreshDeferred = false;
    m_touched.clear();
    QVector<fileshare::SessionRow> rows;
    int active = 0;
    const QList<ShareSession> sessions = m_controller->allSessions();
    for (const ShareSession &session : sessions) {
        rows.append(fileshare::sessionRow(session, m_controller->sessionRoots(session.id)));
        active += rows.last().isActive ? 1 : 0;
    }
    m_table->showSessions(rows);
    showRecordsState(rows.size(), active);
    showPendingState();
}

void FileSharePage::showRecordsState(int total, int active)
{
    m_recordViews->setCurrentIndex(total > 0 ? 0 : 1);
    m_recordsStatus->setText(fileshare::recordsText(total, active));
    m_stopAll->setEnabled(active > 0);
    m_startAll->setEnabled(active < total);
    m_removeAll->setEnabled(total > 0);
    m_networkHint->setVisible(active > 0 && FileShareController::localIpAddresses().isEmpty());
}

void FileSharePage::onAccessLogUpdated(const QString &id)
{
    // Visitors come in bursts.
    m_touched.insert(id);
    if (!m_touchedTimer->isActive())
        m_touchedTimer->start();
}

void FileSharePage::updateTouchedSessions()
{
    if (!isVisible() || m_gate->isBusy()) {
        m_refreshDeferred = m_refreshDeferred || !m_touched.isEmpty();
        return;
    }
    const QSet<QString> touched = m_touched;
    m_touched.clear();
    for (const QString &id : touched) {
        const ShareSession session = m_controller->sessionInfo(id);
        if (!session.id.isEmpty())
            m_table->updateSession(fileshare::sessionRow(session, m_controller->sessionRoots(id)));
    }
}

void FileSharePage::onBusyChanged(const QString &what)
{
    m_busyNote->setText(what);
    m_dropTarget->setActive(!m_gate->isBusy());
    if (!m_gate->isBusy() && isVisible())
        flushDeferredSessionRefresh();
}

void FileSharePage::onSessionAction(const QString &id, int action)
{
    if (!canOperate())
        return;
    if (action == SessionTable::DetailAction)
        onShowDetail(id);
    else if (action == SessionTable::DeleteAction)
        onRemoveSession(id);
    else if (m_table->isActive(id))
        onStopSession(id);
    else
        onRestartSession(id);
}

void FileSharePage::onSessionDoubleClicked(int row, int column)
{
    Q_UNUSED(column)
    const QString id = m_table->idAt(row);
    if (!id.isEmpty())
        onShowDetail(id);
}

void FileSharePage::onShowDetail(const QString &id)
{
    if (!canOperate())
        return;
    auto *dialog = new FileShareDetailDialog(m_controller, id, this);
    dialog->setPathChooser(m_chooser);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->open();
}

void FileSharePage::onStopSession(const QString &id)
{
    if (!canOperate())
        return;
    m_gate->run(tr("正在停止共享..."), [this, id] { m_controller->stopShare(id); });
}

void FileSharePage::onRestartSession(const QString &id)
{
    bool started = false;
    if (!canOperate() || !m_gate->run(tr("正在启动共享..."), [this, id, &started] {
            started = m_controller->restartShare(id);
        }))
        return;
    if (started)
        showLinks(tr("共享已启动"), id);
    else
        AppNoticeDialog::showError(this, tr("启动失败"),
                                   tr("无法重新启动共享，请检查端口是否被占用。"));
}

void FileSharePage::onRemoveSession(const QString &id)
{
    if (!canOperate() ||
        !AppNoticeDialog::confirm(this, tr("确认删除"), tr("确定要删除这条共享记录吗？")))
        return;
    m_gate->run(tr("正在删除共享记录..."), [this, id] { m_controller->removeSession(id); });
}

void FileSharePage::onStartAllSessions()
{
    if (!canOperate())
        return;
    QStringList ids;
    const QList<ShareSession> sessions = m_controller->allSessions();
    for (const ShareSession &session : sessions) {
        if (!fileshare::isActive(session.status))
            ids.append(session.id);
    }
    int started = 0;
    if (ids.isEmpty() || !m_gate->runForEach(tr("正在启动共享"), ids, [&](const QString &id) {
            started += m_controller->restartShare(id) ? 1 : 0;
        }))
        return;
    const int failed = ids.size() - started;
    const QString text = fileshare::startedText(started, failed);
    if (failed == 0)
        AppNoticeDialog::showSuccess(this, tr("全部启动完成"), text);
    else
        AppNoticeDialog::showWarning(this, tr("部分启动失败"), text);
}

void FileSharePage::onStopAllSessions()
{
    if (!canOperate())
        return;
    m_gate->run(tr("正在停止所有共享..."), [this] { m_controller->stopAllShares(true); });
}

void FileSharePage::onRemoveAllSessions()
{
    if (!canOperate() ||
        !AppNoticeDialog::confirm(this, tr("确认删除"), tr("确定要删除所有共享记录吗？")))
        return;
    QStringList ids;
    const QList<ShareSession> sessions = m_controller->allSessions();
    for (const ShareSession &session : sessions)
        ids.append(session.id);
    m_gate->runForEach(tr("正在删除共享记录"), ids,
                       [this](const QString &id) { m_controller->removeSession(id); });
}
