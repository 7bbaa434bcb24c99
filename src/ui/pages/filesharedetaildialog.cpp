#include "ui/pages/filesharedetaildialog.h"

#include "share/filesharecontroller.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/busynote.h"
#include "ui/common/emptystate.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/operationgate.h"
#include "ui/common/shareparameterform.h"
#include "ui/common/sharepathlist.h"
#include "ui/common/sharewidgets.h"
#include "ui/common/theme.h"
#include "ui/common/utils/sharetext.h"
#include "ui/pages/filesharedetaildialog/accesslogpanel.h"
#include "ui/pages/filesharedetaildialog/editcard.h"
#include "ui/pages/filesharedetaildialog/logrules.h"
#include "ui/pages/filesharedetaildialog/viewcard.h"

#include <QPushButton>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

using fileshare::AccessLogPanel;
using fileshare::OperationGate;
using fileshare::ShareParameterForm;
using fileshare::SharePathChooser;
using ui::common::AppNoticeDialog;
using ui::common::EmptyState;
using ui::common::IconWidget;
namespace metrics = ui::common::metrics;

namespace {

constexpr QSize kSize(860, 640);
constexpr QSize kMostSize(980, 660); ///< Fits the smallest screen.
constexpr int kLogDelayMs = 150;

} // namespace

FileShareDetailDialog::FileShareDetailDialog(FileShareController *controller,
                                             const QString &sessionId, QWidget *parent)
    : FramelessDialog(parent, Sizing::Resizable)
    , m_controller(controller)
    , m_sessionId(sessionId)
    , m_chooser(SharePathChooser::dialogs())
    , m_logTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("FileShareDetailDialog"));
    setWindowTitle(tr("共享详情"));
    const ui::common::ThemeColors &colors = ui::common::ThemeColors::current();
    resize(QSize(colors.fontPx(kSize.width()), colors.fontPx(kSize.height())).boundedTo(kMostSize));
    buildModes();
    buildButtons();
    m_gate = new OperationGate({m_modes, m_stop, m_edit, m_close, m_cancel, m_save}, this);
    connect(m_gate, &OperationGate::changed, m_busyNote, &fileshare::BusyNote::setText);
    wireController();
    switchToViewMode();
}

void FileShareDetailDialog::buildModes()
{
    auto *viewing = new QWidget(this);
    m_view = new fileshare::ViewCard(viewing);
    m_log = new AccessLogPanel(viewing);
    auto *column = new QVBoxLayout(viewing);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(m_view);
    column->addWidget(m_log, 1);
    m_editor = new fileshare::EditCard(this);
    auto *missing = new EmptyState(IconWidget::Share, this);
    missing->setObjectName(QStringLiteral("ShareMissing"));
    missing->setTexts(tr("未找到"), tr("这条共享记录可能已被删除，请关闭后重新选择。"));

    m_modes = new QStackedWidget(this);
    m_modes->addWidget(viewing);
    m_modes->addWidget(m_editor);
    m_modes->addWidget(missing);
    contentLayout()->addWidget(m_modes, 1);
    connect(m_log, &AccessLogPanel::previousRequested, this, &FileShareDetailDialog::onPrevPage);
    connect(m_log, &AccessLogPanel::nextRequested, this, &FileShareDetailDialog::onNextPage);
    connect(m_log, &AccessLogPanel::filterChanged, this, &FileShareDetailDialog::onFilterChanged);
    connect(m_editor, &fileshare::EditCard::addFilesRequested, this,
            &FileShareDetailDialog::onEditAddFiles);
    connect(m_editor, &fileshare::EditCard::addFolderRequested, this,
            &FileShareDetailDialog::onEditAddFolder);
}

void FileShareDetailDialog::buildButtons()
{
    const auto add = [this](const QString &text, const char *name, const QString &role) {
        QPushButton *button = addButton(text, role);
        button->setObjectName(QLatin1String(name));
        return button;
    };
    m_stop = add(tr("停止共享"), "ShareDetailStopButton", QStringLiteral("danger"));
    m_edit = add(tr("编辑"), "ShareDetailEditButton", QString());
    m_close = add(tr("关闭"), "ShareDetailCloseButton", QStringLiteral("primary"));
    m_cancel = add(tr("取消"), "ShareEditCancelButton", QString());
    m_save = add(tr("保存并重新共享"), "ShareEditSaveButton", QStringLiteral("primary"));
    m_busyNote = new fileshare::BusyNote(this);
    addToButtonRow(m_busyNote);
    connect(m_stop, &QPushButton::clicked, this, &FileShareDetailDialog::onStop);
    connect(m_edit, &QPushButton::clicked, this, &FileShareDetailDialog::onEdit);
    connect(m_close, &QPushButton::clicked, this, &QDialog::accept);
    connect(m_cancel, &QPushButton::clicked, this, &FileShareDetailDialog::switchToViewMode);
    connect(m_save, &QPushButton::clicked, this, &FileShareDetailDialog::onSaveAndRestart);
}

void FileShareDetailDialog::wireController()
{
    m_logTimer->setSingleShot(true);
    m_logTimer->setInterval(kLogDelayMs);
    connect(m_logTimer, &QTimer::timeout, this, [this] {
        refreshView();
        refreshAccessLog();
    });
    if (!m_controller)
        return;
    connect(m_controller, &FileShareController::sessionListChanged, this,
            &FileShareDetailDialog::refreshView);
    connect(m_controller, &FileShareController::accessLogUpdated, this, [this](const QString &id) {
        // Visitors come in bursts.
        if (id == m_sessionId && !m_logTimer->isActive())
            m_logTimer->start();
    });
}

bool FileShareDetailDialog::isEditing() const
{
    return m_modes->currentIndex() == EditMode;
}

bool FileShareDetailDialog::canOperate() const
{
    return m_controller && !m_gate->isBusy();
}

void FileShareDetailDialog::showMode(Mode mode)
{
    m_modes->setCurrentIndex(mode);
    m_edit->setVisible(mode == ViewMode);
    m_close->setVisible(mode != EditMode);
    m_cancel->setVisible(mode == EditMode);
    m_save->setVisible(mode == EditMode);
    (mode == EditMode ? m_save : m_close)->setDefault(true);
}

void FileShareDetailDialog::refreshView()
{
    const ShareSession session =
        m_controller ? m_controller->sessionInfo(m_sessionId) : ShareSession();
    const bool active = fileshare::isActive(session.status);
    m_stop->setVisible(active && !isEditing());
    if (session.id.isEmpty()) {
        // What is being edited stays in sight; saving it will tell.
        if (!isEditing())
            showMode(MissingMode);
        return;
    }
    if (!isEditing())
        showMode(ViewMode);
    m_view->showSession(session, m_controller->shareUrls(m_sessionId));
    m_editor->setPort(m_controller->sharePort(), m_controller->hasActiveShares() && !active);
}

void FileShareDetailDialog::refreshAccessLog()
{
    if (!m_controller)
        return;
    const QString filter = m_log->filter();
    m_total = m_controller->accessLogCount(m_sessionId, filter);
    m_page = fileshare::clampedPage(m_page, m_total);
    m_log->showPage(m_controller->accessLog(m_sessionId, filter, m_page, fileshare::kLogPageSize),
                    m_page, m_total);
}

void FileShareDetailDialog::onPrevPage()
{
    if (m_page == 0)
        return;
    --m_page;
    refreshAccessLog();
}

void FileShareDetailDialog::onNextPage()
{
    if (m_page + 1 >= fileshare::pageCount(m_total))
        return;
    ++m_page;
    refreshAccessLog();
}

void FileShareDetailDialog::onFilterChanged()
{
    m_page = 0;
    refreshAccessLog();
}

void FileShareDetailDialog::onCopyUrl()
{
    m_view->copySelectedUrl();
}

void FileShareDetailDialog::onStop()
{
    if (!canOperate())
        return;
    m_gate->run(tr("正在停止共享..."), [this] { m_controller->stopShare(m_sessionId); });
}

void FileShareDetailDialog::onEdit()
{
    if (!canOperate())
        return;
    if (!fileshare::isActive(m_controller->sessionInfo(m_sessionId).status)) {
        switchToEditMode();
        return;
    }
    if (AppNoticeDialog::confirm(this, tr("停止共享"), tr("编辑前需要先停止当前共享，是否继续？"),
                                 tr("停止并编辑")))
        onStopAndEdit();
}

void FileShareDetailDialog::onStopAndEdit()
{
    if (canOperate() &&
        m_gate->run(tr("正在停止共享..."), [this] { m_controller->stopShare(m_sessionId); }))
        switchToEditMode();
}

void FileShareDetailDialog::switchToEditMode()
{
    if (!canOperate())
        return;
    const ShareSession session = m_controller->sessionInfo(m_sessionId);
    if (session.id.isEmpty()) {
        refreshView();
        return;
    }
    QStringList paths;
    const QList<ShareRoot> roots = m_controller->sessionRoots(m_sessionId);
    for (const ShareRoot &root : roots)
        paths.append(root.localPath);
    m_editor->load(session, paths);
    showMode(EditMode);
    refreshView();
}

void FileShareDetailDialog::switchToViewMode()
{
    showMode(ViewMode);
    refreshView();
    refreshAccessLog();
}

void FileShareDetailDialog::onEditAddFiles()
{
    m_editor->addPaths(fileshare::chooseFiles(m_chooser, this));
}

void FileShareDetailDialog::onEditAddFolder()
{
    m_editor->addPaths(fileshare::chooseFolder(m_chooser, this));
}

void FileShareDetailDialog::onSaveAndRestart()
{
    if (!canOperate())
        return;
    const QStringList paths = m_editor->list()->paths();
    if (paths.isEmpty()) {
        AppNoticeDialog::showInfo(this, tr("提示"), tr("请至少添加一个文件或文件夹。"));
        return;
    }
    bool saved = false;
    const bool ran = m_gate->run(tr("正在重新共享..."), [this, paths, &saved] {
        const ShareParameterForm *form = m_editor->form();
        saved = m_controller->updateAndRestartShare(m_sessionId, paths, form->password(),
                                                    form->durationMin(), form->maxClients(),
                                                    form->accessMode());
    });
    if (!ran)
        return;
    if (!saved) {
        AppNoticeDialog::showError(this, tr("失败"), tr("重新共享失败，请检查端口是否被占用。"));
        return;
    }
    const QPointer<FileShareDetailDialog> self(this);
    fileshare::showLinks(this, tr("共享已更新"), m_controller->shareUrls(m_sessionId));
    if (self)
        switchToViewMode();
}

void FileShareDetailDialog::reject()
{
    // Closing would free the dialog under an operation that waits in its own event loop.
    if (m_gate->isBusy())
        return;
    // Esc leaves the editing first, so that what was typed is not lost with the dialog.
    if (isEditing())
        switchToViewMode();
    else
        FramelessDialog::reject();
}
