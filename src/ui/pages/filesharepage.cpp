#include "ui/pages/filesharepage.h"

#include "share/filesharecontroller.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/busynote.h"
#include "ui/common/filedroptarget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/operationgate.h"
#include "ui/common/sharepathadder.h"
#include "ui/common/sharewidgets.h"
#include "ui/common/styletemplate.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/fileshareconfirmdialog.h"
#include "ui/pages/filesharedetaildialog.h"
#include "ui/pages/filesharepage/pendingcard.h"
#include "ui/pages/filesharepage/recordspanel.h"
#include "ui/pages/filesharepage/sessiontable.h"
#include "ui/pages/filesharepage/shareportdialog.h"
#include "ui/pages/filesharepage/sharerules.h"

#include <QTimer>
#include <QVBoxLayout>

using fileshare::OperationGate;
using fileshare::PendingCard;
using fileshare::RecordsPanel;
using fileshare::SessionTable;
using fileshare::SharePathAdder;
using fileshare::SharePathChooser;
using ui::common::AppNoticeDialog;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kTouchedDelayMs = 250;

QString pageSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QListView#SharePendingList { border: 1px dashed @textMuted@; }
QListView#SharePendingList[filled="true"] { border: 1px solid @border@; }
QListView#SharePendingList[dropping="true"], QListView#ShareEditList[dropping="true"] { border: 2px solid @accent@; padding: 3px;
    background: @activeNavBackground@; }
QLabel#ShareDropHint { color: @textMuted@; }
QLabel#ShareDropHint[dropping="true"] { color: @linkText@; }
)qss"));
}

} // namespace

FileSharePage::FileSharePage(FileShareController *controller, QWidget *parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_chooser(SharePathChooser::dialogs())
    , m_touchedTimer(new QTimer(this))
    , m_adder(new SharePathAdder(this))
{
    setObjectName(QStringLiteral("FileSharePage"));
    setStyleSheet(pageSheet());
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    layout->setSpacing(metrics::kCardGap);
    layout->addLayout(buildHeader());
    buildPending();
    buildRecords();
    layout->addWidget(m_pending);
    layout->addWidget(m_records, 1);
    m_gate = new OperationGate({m_pending, m_records}, this);
    connect(m_gate, &OperationGate::changed, this, &FileSharePage::onBusyChanged);
    wireDrops();
    wireController();
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

void FileSharePage::buildPending()
{
    m_pending = new PendingCard(this);
    connect(m_pending, &PendingCard::addFilesRequested, this, &FileSharePage::onAddFiles);
    connect(m_pending, &PendingCard::addFolderRequested, this, &FileSharePage::onAddFolder);
    connect(m_adder, &SharePathAdder::accepted, m_pending, &PendingCard::addPaths);
    connect(m_pending, &PendingCard::portRequested, this, &FileSharePage::onOpenShareSettings);
    connect(m_pending, &PendingCard::startRequested, this, &FileSharePage::onStartShare);
}

void FileSharePage::buildRecords()
{
    m_records = new RecordsPanel(this);
    m_table = m_records->table();
    connect(m_records, &RecordsPanel::stopAllRequested, this, &FileSharePage::onStopAllSessions);
    connect(m_records, &RecordsPanel::startAllRequested, this, &FileSharePage::onStartAllSessions);
    connect(m_records, &RecordsPanel::removeAllRequested, this,
            &FileSharePage::onRemoveAllSessions);
    connect(m_table, &SessionTable::actionRequested, this, &FileSharePage::onSessionAction);
    connect(m_table, &QTableView::doubleClicked, this, [this](const QModelIndex &index) {
        onSessionDoubleClicked(index.row(), index.column());
    });
}

void FileSharePage::wireDrops()
{
    m_dropTarget = new fileshare::FileDropTarget(this);
    connect(m_dropTarget, &fileshare::FileDropTarget::hovered, m_pending,
            &PendingCard::setDropping);
    connect(m_dropTarget, &fileshare::FileDropTarget::dropped, this,
            &FileSharePage::addPathsToList);
}

void FileSharePage::wireController()
{
    m_touchedTimer->setSingleShot(true);
    m_touchedTimer->setInterval(kTouchedDelayMs);
    connect(m_touchedTimer, &QTimer::timeout, this, &FileSharePage::updateTouchedSessions);
    if (!m_controller) {
        m_pending->setEnabled(false);
        m_records->showUnavailable();
        m_dropTarget->setActive(false);
        return;
    }
    m_pending->setPort(m_controller->sharePort());
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

bool FileSharePage::canOperate() const
{
    return m_controller && !m_gate->isBusy();
}

void FileSharePage::updateDropHintGeometry()
{
    m_pending->updateDropHintGeometry();
}

void FileSharePage::updateStartButtonState()
{
    m_pending->updateStartButtonState();
}

void FileSharePage::addPathsToList(const QStringList &paths)
{
    m_adder->add(paths);
}

void FileSharePage::onAddFiles()
{
    addPathsToList(fileshare::chooseFiles(m_chooser, this));
}

void FileSharePage::onAddFolder()
{
    addPathsToList(fileshare::chooseFolder(m_chooser, this));
}

void FileSharePage::onRemoveSelected()
{
    m_pending->removeSelected();
}

void FileSharePage::onClearFiles()
{
    m_pending->clearPaths();
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
    m_pending->setPort(m_controller->sharePort());
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
    fileshare::showLinks(this, tr("共享已启动"), m_controller->shareUrls(id));
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
    const QList<ShareSession> sessions = m_controller->allSessions();
    for (const ShareSession &session : sessions)
        rows.append(fileshare::sessionRow(session, m_controller->sessionRoots(session.id)));
    m_records->showSessions(rows);
    m_records->setReachable(!m_controller->hasActiveShares() ||
                            !FileShareController::localIpAddresses().isEmpty());
    m_pending->setPort(m_controller->sharePort());
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
    if (action == fileshare::DetailAction)
        onShowDetail(id);
    else if (action == fileshare::DeleteAction)
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
        fileshare::showLinks(this, tr("共享已启动"), m_controller->shareUrls(id));
    else
        AppNoticeDialog::showError(this, tr("启动失败"),
                                   tr("无法重新启动共享，请检查端口是否被占用。"));
}

void FileSharePage::onRemoveSession(const QString &id)
{
    if (!canOperate() || !AppNoticeDialog::confirmDestruction(
                             this, tr("确认删除"), tr("确定要删除这条共享记录吗？"), tr("删除")))
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
        !AppNoticeDialog::confirmDestruction(this, tr("确认删除"), tr("确定要删除所有共享记录吗？"),
                                             tr("全部删除")))
        return;
    QStringList ids;
    const QList<ShareSession> sessions = m_controller->allSessions();
    for (const ShareSession &session : sessions)
        ids.append(session.id);
    m_gate->runForEach(tr("正在删除共享记录"), ids,
                       [this](const QString &id) { m_controller->removeSession(id); });
}
