#pragma once

#include "app/systemtray.h"
#include "app/vaultstartupnotice.h"
#include "core/appmode.h"
#include "core/ipc/ipcclient.h"
#include "ui/common/iconwidget.h"

#include <QJsonObject>
#include <QList>
#include <QMainWindow>
#include <QStringList>
#include <QUrl>

#include <functional>

class CollapsibleSidebar;
class FileShareController;
class QBoxLayout;
class QStackedWidget;
class QTimer;
class RecoveryLink;
class RecoveryWorkflowWindow;
class SidebarNavButton;
class VaultController;

namespace core {
namespace controllers {
class DiskInfoProvider;
class ForensicsController;
class RecoveryController;
class ScanController;
namespace upgrade {
class UpgradeController;
}
} // namespace controllers
namespace diagnostics {
class GuiDiagnosticsRuntime;
}
namespace ipc {
class IpcClient;
}
} // namespace core
namespace ui {
namespace common {
class FramelessWindowController;
class WindowTitleBar;
} // namespace common
} // namespace ui

/// What a main window takes from its surroundings.
struct MainWindowOptions
{
    /// Tells whether the desktop has a system tray.
    SystemTray::AvailabilityProbe trayProbe = &QSystemTrayIcon::isSystemTrayAvailable;
    /// Local socket of the recovery service.
    QString recoveryService = QStringLiteral("morvane-service-v1");
    /// Local socket of the vault service.
    QString vaultService = QStringLiteral("morvane-vault-v1");
    /// Whom the vault service must be to be talked to, and to be told a password.
    core::ipc::ServicePolicy vaultPolicy;
    /// Empty: the one of the deployment.
    QUrl updateServer;
};

/// The main window of the product: it owns what lives for the whole run, builds the
/// navigation of the run mode and most pages on their first show, keeps the vault link alive and,
/// in normal mode, sits in the system tray. GUI thread only.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    using PageFactory = std::function<QWidget *()>;

    explicit MainWindow(core::AppMode mode, QWidget *parent = nullptr,
                        const MainWindowOptions &options = MainWindowOptions());
    ~MainWindow() override;

    /// Adds an entry to the sidebar. Without a page, `factory` builds it on its first show and an
    /// empty widget holds its place until then; with neither, nothing is added.
    void addNavPage(const QString &label, ui::common::IconWidget::IconType icon, QWidget *page,
                    const QString &moduleKey, const PageFactory &factory = PageFactory());
    /// Builds the page at `index` if it is still to be built. False for a bad index. A factory
    /// that gives null leaves the empty widget, and is asked again at the next show.
    bool ensurePageCreated(int index);
    void showPageIndex(int index);
    /// As showPageIndex(); a bad index changes nothing.
    void switchToPage(int index);
    /// Brings the window up with the file share page, where there is one.
    void switchToSharePage();
    /// Stack index of a page, or -1.
    int pageIndexForModule(const QString &moduleKey) const;

    void applySidebarPinnedMode(bool pinned);
    bool loadSidebarPinnedSetting() const;

    /// Shows the window, restores it if minimised, and gives it the focus.
    void bringToFront();

    void setupSystemTray();
    void scheduleSystemTrayRetry(int delayMs);
    void updateTrayShareStatus();

    /// Keep the recovery service's link alive, and lead from its disks to a scan and a recovery. Do
    /// nothing where the recovery environment's parts have not been built.
    void setupLiveCdIpc();
    void setupLiveCdFlow();

    /// Warns, at most once a run and only in normal mode, if protection is on but not in effect;
    /// not after the user has switched it, whose page then tells what to do.
    void maybeShowVaultStartupStatusNotice(const QJsonObject &status);

protected:
    void changeEvent(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void buildServices(const MainWindowOptions &options);
    void buildWindow();
    void placeOnScreen();
    void buildFrame();
    QWidget *buildContentRow();
    void buildChrome();
    void syncOutline();
    void buildRecoveryServices(const QString &serviceName);
    void buildVaultLink(const QString &serviceName, const core::ipc::ServicePolicy &policy);
    void buildNavigation();
    void buildShortcuts();
    void toggleVisible();
    void quitFromTray();
    void wireSettings(QWidget *page);
    void scheduleUpdateCheck();
    void onProtectionSwitched();
    /// True unless a scan or a recovery is under way and the user wants to stay with it.
    bool mayEndRun();

    core::AppMode m_appMode;
    bool m_useCustomChrome;
    ui::common::WindowTitleBar *m_titleBar = nullptr;
    ui::common::FramelessWindowController *m_framelessController = nullptr;
    CollapsibleSidebar *m_sidebar = nullptr;
    QWidget *m_sidebarHost = nullptr;
    QStackedWidget *m_pagesStack = nullptr;

    // One item each per stack index.
    QList<SidebarNavButton *> m_navButtons;
    QStringList m_moduleKeys;
    QList<PageFactory> m_pageFactories;

    core::controllers::upgrade::UpgradeController *m_upgradeController = nullptr;
    core::diagnostics::GuiDiagnosticsRuntime *m_diagnostics = nullptr;
    FileShareController *m_shareController = nullptr;
    // The recovery environment's own; null in normal mode.
    core::ipc::IpcClient *m_recoveryClient = nullptr;
    core::controllers::DiskInfoProvider *m_diskInfo = nullptr;
    core::controllers::ScanController *m_scanController = nullptr;
    core::controllers::RecoveryController *m_recoveryController = nullptr;
    core::controllers::ForensicsController *m_forensicsController = nullptr;
    RecoveryWorkflowWindow *m_workflowWindow = nullptr; ///< Without a parent.
    RecoveryLink *m_recoveryLink = nullptr;

    core::ipc::IpcClient *m_vaultClient = nullptr;
    VaultController *m_vaultController = nullptr;
    QTimer *m_vaultReconnectTimer = nullptr;
    QTimer *m_startupNoticeTimer = nullptr;
    StartupNotice m_startupNotice;
    SystemTray *m_tray = nullptr;
    /// Or no longer due, since the user has switched protection.
    bool m_vaultStartupNoticeShown = false;
    bool m_isAskingToClose = false;
    bool m_updateCheckDispatched = false;
    int m_sharePageIndex = -1;
};
