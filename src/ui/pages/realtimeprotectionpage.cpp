#include "ui/pages/realtimeprotectionpage.h"

#include "ui/common/appnoticedialog.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/styletemplate.h"
#include "ui/common/utils/protectedfiles.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/realtimeprotectionpage/authdialog.h"
#include "ui/pages/realtimeprotectionpage/filelistcard.h"
#include "ui/pages/realtimeprotectionpage/lockoverlay.h"
#include "ui/pages/realtimeprotectionpage/noticequeue.h"
#include "ui/pages/realtimeprotectionpage/statuscard.h"
#include "ui/pages/shieldsettingsdialog.h"
#include "vault/vaultcontroller.h"

#include <QFileDialog>
#include <QJsonArray>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>

using core::AppMode;
using realtimeprotection::FileListCard;
using realtimeprotection::StatusCard;
using ui::common::AppNoticeDialog;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kFirstFiles = 100;
constexpr int kAutoLockMs = 300000;
constexpr int kVerificationTimeoutMs = 10000;
/// Who empties a directory deletes many files at once: the list follows at this pace.
constexpr int kProtectedPaceMs = 500;

QString pageSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QLabel#StatusDot { border-radius: 6px; }
QFrame#StatCard { background: @headerBackground@; border: 1px solid @border@; border-radius: 8px; }
QFrame#SpaceWarning { background: @warningBackground@; border: 1px solid @warningBorder@; border-radius: 8px; }
QFrame#SpaceWarning QLabel { color: @warningInk@; }
QFrame#StatCard QLabel#LargeValue { font-size: @20px@; }
)qss"));
}

} // namespace

RealtimeProtectionPage::RealtimeProtectionPage(VaultController *controller, AppMode mode,
                                               QWidget *parent)
    : QWidget(parent)
    , m_mode(mode)
    , m_controller(controller)
    , m_chooseDirectory([](QWidget *owner, const QString &title) {
        return QFileDialog::getExistingDirectory(owner, title);
    })
    , m_isUnlocked(mode == AppMode::livecd)
    , m_verificationTimeoutMs(kVerificationTimeoutMs)
    , m_notices(new NoticeQueue(this))
    , m_protectedTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("RealtimeProtectionPage"));
    setStyleSheet(pageSheet());
    buildPage();
    if (m_mode == AppMode::normal)
        buildOverlay();
    wireParts();
    setFileListLocked(!m_isUnlocked);
    m_status->setControlsEnabled(false);
    if (m_controller)
        connectController();
}

RealtimeProtectionPage::~RealtimeProtectionPage() = default;

void RealtimeProtectionPage::buildPage()
{
    auto *content = new QWidget;
    auto *column = new QVBoxLayout(content);
    column->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    column->setSpacing(metrics::kCardGap);
    auto *title = new QLabel(tr("实时文件保护"), content);
    title->setObjectName(QStringLiteral("PageTitle"));
    auto *line = new ui::common::WrapLabel(tr("开启保护后，被删除的文件将保留一段时间，"
                                              "到期后自动清除，可在下方列表中恢复"),
                                           content);
    line->setObjectName(QStringLiteral("SubtleText"));
    auto *header = new QVBoxLayout;
    header->setSpacing(metrics::kFieldGap / 2);
    header->addWidget(title);
    header->addWidget(line);
    m_status = new StatusCard(content);
    m_files = new FileListCard(content);
    column->addLayout(header);
    column->addWidget(m_status);
    column->addWidget(m_files, 1);

    auto *scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("ProtectionScroll"));
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidgetResizable(true);
    scroll->setWidget(content);
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll);
}

void RealtimeProtectionPage::buildOverlay()
{
    m_overlay = new LockOverlay(m_files);
    connect(m_overlay, &LockOverlay::unlockRequested, this, &RealtimeProtectionPage::requestUnlock);
    m_autoLockTimer = new QTimer(this);
    m_autoLockTimer->setSingleShot(true);
    m_autoLockTimer->setInterval(kAutoLockMs);
    connect(m_autoLockTimer, &QTimer::timeout, this, [this] { setFileListLocked(true); });
}

void RealtimeProtectionPage::wireParts()
{
    connect(m_status, &StatusCard::toggleRequested, this,
            &RealtimeProtectionPage::toggleProtection);
    connect(m_status, &StatusCard::settingsRequested, this, &RealtimeProtectionPage::openSettings);
    connect(m_files, &FileListCard::searchRequested, this, &RealtimeProtectionPage::onSearchFiles);
    connect(m_files, &FileListCard::restoreRequested, this,
            &RealtimeProtectionPage::onRestoreSelected);
    connect(m_files, &FileListCard::deleteRequested, this,
            &RealtimeProtectionPage::onDeleteSelected);
    connect(m_files, &FileListCard::clearRequested, this, &RealtimeProtectionPage::onClearAll);
    m_protectedTimer->setSingleShot(true);
    m_protectedTimer->setInterval(kProtectedPaceMs);
    connect(m_protectedTimer, &QTimer::timeout, this, [this] {
        if (m_isProtectedAgain)
            onFileProtected();
    });
}

void RealtimeProtectionPage::setController(VaultController *controller)
{
    if (m_controller)
        disconnect(m_controller, nullptr, this, nullptr);
    m_controller = controller;
    if (!m_controller) {
        onConnectionChanged(false);
        return;
    }
    connectController();
    refreshAll();
}

void RealtimeProtectionPage::connectController()
{
    connect(m_controller, &VaultController::statusUpdated, this,
            &RealtimeProtectionPage::onStatusUpdated);
    connect(m_controller, &VaultController::configUpdated, this,
            &RealtimeProtectionPage::onConfigUpdated);
    connect(m_controller, &VaultController::fileListUpdated, this,
            &RealtimeProtectionPage::onFileListUpdated);
    connect(m_controller, &VaultController::connectionChanged, this,
            &RealtimeProtectionPage::onConnectionChanged);
    connect(m_controller, &VaultController::fileProtected, this,
            &RealtimeProtectionPage::onFileProtected);
    connect(m_controller, &VaultController::spaceWarning, this,
            [this](qint64 used, qint64 limit) { m_status->showSpaceWarning(used, limit); });
    connectCompletions();
    connect(m_controller, &VaultController::operationError, this,
            [this](const QString &, const QString &message) {
                m_wholeListSize = 0;
                m_notices->add(AppNoticeDialog::Error, tr("操作错误"), message);
            });
    connect(m_controller, &QObject::destroyed, this, [this] { onConnectionChanged(false); });
    onConnectionChanged(m_controller->isConnected());
}

void RealtimeProtectionPage::connectCompletions()
{
    connect(m_controller, &VaultController::enableCompleted, this,
            [this](bool success, const QString &, bool needReboot) {
                onEnableCompleted(success, needReboot);
            });
    connect(m_controller, &VaultController::disableCompleted, this,
            &RealtimeProtectionPage::onDisableCompleted);
    connect(m_controller, &VaultController::restoreCompleted, this, [this](bool success) {
        onFilesChanged(success, tr("恢复失败"), tr("部分文件恢复失败。"));
    });
    connect(m_controller, &VaultController::deleteCompleted, this, [this](bool success) {
        onFilesChanged(success, tr("删除失败"), tr("部分文件删除失败。"));
    });
    connect(m_controller, &VaultController::clearCompleted, this, [this](bool success) {
        onFilesChanged(success, tr("清空失败"), tr("清空操作失败。"));
    });
}

void RealtimeProtectionPage::setAutoLockInterval(int ms)
{
    if (m_autoLockTimer)
        m_autoLockTimer->setInterval(ms);
}

bool RealtimeProtectionPage::isConnected() const
{
    return m_controller && m_controller->isConnected();
}

void RealtimeProtectionPage::refreshAll()
{
    if (!m_controller)
        return;
    m_controller->refreshStatus();
    m_controller->refreshConfig();
    requestFirstFiles(QString());
}

void RealtimeProtectionPage::requestFirstFiles(const QString &filter)
{
    m_wholeListSize = 0;
    m_controller->refreshFileList(kFirstFiles, 0, filter);
}

void RealtimeProtectionPage::onConnectionChanged(bool connected)
{
    m_status->setControlsEnabled(connected);
    m_files->setConnected(connected);
    if (m_overlay)
        m_overlay->setServiceAvailable(connected);
    m_wholeListSize = 0;
    if (connected)
        refreshAll();
    else
        m_status->showDisconnected(m_controller && !m_controller->refusal().isEmpty());
}

void RealtimeProtectionPage::onStatusUpdated(const QJsonObject &object)
{
    const auto status = realtimeprotection::ServiceStatus::fromJson(object);
    m_isProtectionEnabled = status.isEnabled;
    m_secondNetReason = status.secondNetReason;
    m_status->showStatus(realtimeprotection::viewOf(status));
    m_status->updateSpaceWarning(status.usedBytes);
    const QString warning = m_breakage.warningFor(status);
    if (!warning.isEmpty())
        m_notices->add(AppNoticeDialog::Warning, tr("保护状态异常"), warning);
}

void RealtimeProtectionPage::onConfigUpdated(const QJsonObject &config)
{
    m_config = config;
    m_protectedDirs = shieldsettings::fromConfig(config).protectedDirs;
    m_status->updateSpaceLimit(shieldsettings::fromConfig(config).maxSpaceBytes);
}

void RealtimeProtectionPage::onFileListUpdated(const QJsonArray &files, int totalCount)
{
    const QString filter = m_files->filter();
    const bool hasGrown = files.size() > m_wholeListSize || m_wholeListFilter != filter;
    if (files.size() >= totalCount) {
        m_wholeListSize = 0;
    } else if (m_controller && hasGrown) {
        // A service that gives only so many at a time would be asked without end, the more so while
        // its total changes.
        m_wholeListSize = files.size();
        m_wholeListFilter = filter;
        m_controller->refreshFileList(totalCount, 0, filter);
    }
    m_files->showFiles(protectedfiles::fromJson(files), totalCount);
}

void RealtimeProtectionPage::onFileProtected()
{
    m_isProtectedAgain = m_protectedTimer->isActive();
    if (m_isProtectedAgain || !m_controller)
        return;
    m_protectedTimer->start();
    m_controller->refreshStatus();
    requestFirstFiles(QString());
}

void RealtimeProtectionPage::toggleProtection()
{
    if (!m_controller)
        return;
    m_status->setToggleEnabled(false);
    if (m_isProtectionEnabled)
        m_controller->disableProtection();
    else
        m_controller->enableProtection();
}

void RealtimeProtectionPage::onToggleCompleted()
{
    m_status->setToggleEnabled(isConnected());
    m_controller->refreshStatus();
    m_controller->refreshConfig();
}

void RealtimeProtectionPage::onEnableCompleted(bool success, bool needReboot)
{
    onToggleCompleted();
    // The status that follows must not add a second notice with other advice to this one.
    if (!success || needReboot)
        m_breakage.acknowledge();
    if (!success)
        m_notices->add(AppNoticeDialog::Warning, tr("启用失败"),
                       tr("启用文件保护失败，请检查守护进程日志。"));
    else if (needReboot)
        m_notices->add(AppNoticeDialog::Information, tr("需要重启"),
                       tr("文件保护已启用，需要重启系统后才能对所有程序生效。\n\n"
                          "建议保存工作进度，然后重启系统。"));
}

void RealtimeProtectionPage::onDisableCompleted(bool success)
{
    onToggleCompleted();
    if (!success)
        m_notices->add(AppNoticeDialog::Warning, tr("关闭失败"),
                       tr("关闭文件保护失败，请检查守护进程日志。"));
}

void RealtimeProtectionPage::onFilesChanged(bool success, const QString &failureTitle,
                                            const QString &failureText)
{
    m_wholeListSize = 0;
    m_controller->refreshStatus();
    if (!success)
        m_notices->add(AppNoticeDialog::Warning, failureTitle, failureText);
}

void RealtimeProtectionPage::onSearchFiles()
{
    if (m_controller)
        requestFirstFiles(m_files->filter());
}

bool RealtimeProtectionPage::canWorkOnFiles() const
{
    return m_controller && m_isUnlocked;
}

bool RealtimeProtectionPage::canStillWorkOnFiles()
{
    if (m_overlay && !m_isUnlocked)
        m_overlay->setMessage(tr("列表已自动锁定，操作未执行"));
    return canWorkOnFiles();
}

void RealtimeProtectionPage::onRestoreSelected()
{
    const QStringList ids = m_files->checkedIds();
    if (!canWorkOnFiles() || ids.isEmpty())
        return;
    const QPointer<RealtimeProtectionPage> self(this);
    const QString directory = m_chooseDirectory(this, tr("选择恢复目标目录"));
    if (self && !directory.isEmpty() && canStillWorkOnFiles())
        m_controller->restoreFiles(ids, directory);
}

void RealtimeProtectionPage::onDeleteSelected()
{
    const QStringList ids = m_files->checkedIds();
    if (!canWorkOnFiles() || ids.isEmpty())
        return;
    const QPointer<RealtimeProtectionPage> self(this);
    const bool confirmed = AppNoticeDialog::confirmDestruction(
        this, tr("确认删除"),
        tr("确定要永久删除选中的 %1 个文件吗？此操作不可恢复。").arg(ids.size()), tr("确认"));
    if (self && confirmed && canStillWorkOnFiles())
        m_controller->deleteFiles(ids);
}

void RealtimeProtectionPage::onClearAll()
{
    if (!canWorkOnFiles())
        return;
    const QPointer<RealtimeProtectionPage> self(this);
    const bool confirmed = AppNoticeDialog::confirmDestruction(
        this, tr("确认清空"), tr("确定要清空所有受保护文件吗？此操作不可恢复。"), tr("确认"));
    if (self && confirmed && canStillWorkOnFiles())
        m_controller->clearAllFiles();
}

void RealtimeProtectionPage::requestUnlock()
{
    if (!m_overlay)
        return;
    if (!isConnected()) {
        const QString refusal = m_controller ? m_controller->refusal() : QString();
        m_overlay->setMessage(refusal.isEmpty() ? tr("守护进程未连接，无法验证") : refusal);
        return;
    }
    if (!m_controller->passwordRefusal().isEmpty()) {
        m_overlay->setMessage(m_controller->passwordRefusal());
        return;
    }
    // On the heap, since the page may go with its window while the dialog is open.
    const QPointer<AuthDialog> dialog = new AuthDialog(m_controller, m_verificationTimeoutMs, this);
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return;
    dialog->deleteLater();
    if (!accepted)
        return;
    setFileListLocked(false);
    m_overlay->setMessage(QString());
    m_autoLockTimer->start();
}

void RealtimeProtectionPage::setFileListLocked(bool locked)
{
    m_isUnlocked = !locked;
    if (m_overlay)
        m_overlay->setLocked(locked);
    m_files->setContentVisible(!locked);
    if (locked && m_autoLockTimer)
        m_autoLockTimer->stop();
}

void RealtimeProtectionPage::openSettings()
{
    if (!m_controller)
        return;
    // Saving what was never read would wipe the service's directories and types.
    if (m_config.isEmpty()) {
        m_controller->refreshConfig();
        m_notices->add(AppNoticeDialog::Warning, tr("保护设置"),
                       tr("尚未读到当前的保护设置，请稍后再试。"));
        return;
    }
    ShieldSettingsDialog::Settings current = shieldsettings::fromConfig(m_config);
    current.protectedDirs = m_protectedDirs;
    const QPointer<ShieldSettingsDialog> dialog = new ShieldSettingsDialog(this);
    dialog->setDirectoryChooser(m_chooseDirectory);
    dialog->setSettings(current);
    dialog->setSecondNetReason(m_secondNetReason);
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return;
    dialog->deleteLater();
    if (accepted)
        applySettingsFromDialog(*dialog);
}

void RealtimeProtectionPage::applySettingsFromDialog(const ShieldSettingsDialog &dialog)
{
    if (m_controller)
        m_controller->updateConfig(shieldsettings::toConfig(dialog.settings()));
}
