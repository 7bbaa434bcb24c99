#include "app/mainwindow.h"

#include "app/applog.h"
#include "app/collapsiblesidebar.h"
#include "app/desktopprogress.h"
#include "app/forcedupdateflow.h"
#include "app/keyboardshortcuts.h"
#include "app/navigation.h"
#include "app/recoveryflow.h"
#include "app/recoverylink.h"
#include "app/scanflow.h"
#include "app/sidebarnavbutton.h"
#include "app/wechatrepair.h"
#include "app/workprogress.h"
#include "core/controllers/diskinfoprovider.h"
#include "core/controllers/forensicscontroller.h"
#include "core/controllers/recoverycontroller.h"
#include "core/controllers/scancontroller.h"
#include "core/controllers/upgrade/upgradecontroller.h"
#include "core/diagnostics/guidiagnosticsruntime.h"
#include "core/ipc/ipcclient.h"
#include "share/filesharecontroller.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/framelesswindowcontroller.h"
#include "ui/common/theme.h"
#include "ui/common/windowtitlebar.h"
#include "ui/pages/blockforensicspage.h"
#include "ui/pages/globalsettingspage.h"
#include "ui/pages/partitionselectpage.h"
#include "ui/pages/recentscanspage.h"
#include "ui/pages/recoveryworkflowwindow.h"
#include "ui/pages/vaultbrowserpage.h"
#include "vault/vaultcontroller.h"

#include <QBoxLayout>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDebug>
#include <QFrame>
#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <QSettings>
#include <QStackedWidget>
#include <QTimer>

#include <optional>
#include <utility>

using core::AppMode;
using core::controllers::DiskInfoProvider;
using core::controllers::ForensicsController;
using core::controllers::RecoveryController;
using core::controllers::ScanController;
using core::controllers::upgrade::UpgradeController;
using core::controllers::upgrade::UpgradeEnvironment;
using core::diagnostics::GuiDiagnosticsRuntime;
using core::ipc::IpcClient;
using ui::common::AppNoticeDialog;
using ui::common::FramelessWindowController;
using ui::common::IconWidget;
using ui::common::ThemeColors;
using ui::common::WindowTitleBar;

namespace {

constexpr int vaultReconnectMs = 5000;
constexpr int startupNoticeDelayMs = 600;
constexpr int updateCheckDelayMs = 1000;
const QSize minimumWindowSize(800, 600);
const QSize sizeWithoutScreen(1024, 768);
const char deferredProperty[] = "deferredPlaceholder";

QString titleFor(AppMode mode)
{
    return mode == AppMode::livecd ? QStringLiteral("墨川归档 - 恢复环境模式")
                                   : QStringLiteral("墨川归档 - 普通模式");
}

QString rootStyleSheet(const ThemeColors &colors)
{
    return QStringLiteral("MainWindow { background: %1; }"
                          "#MainWindowRoot, #RightCard { background: %2; border: none; }")
        .arg(colors.border.name(), colors.windowBackground.name());
}

} // namespace

MainWindow::MainWindow(AppMode mode, QWidget *parent, const MainWindowOptions &options)
    : QMainWindow(parent)
    , m_appMode(mode)
    , m_useCustomChrome(FramelessWindowController::shouldUseCustomChrome())
{
    buildServices(options);
    buildWindow();
    buildFrame();
    m_diagnostics->start();
    m_diagnostics->noteAction(QStringLiteral("main_window_initialized"));
    buildChrome();
    if (m_appMode == AppMode::livecd)
        buildRecoveryServices(options.recoveryService);
    buildVaultLink(options.vaultService, options.vaultPolicy);
    buildNavigation();
    buildShortcuts();
    new DesktopProgress(this);

    if (m_appMode == AppMode::normal) {
        m_vaultClient->connectToService();
        setupSystemTray();
        startWechatRepair(this);
    } else {
        setupLiveCdFlow();
        setupLiveCdIpc();
        m_recoveryClient->connectToService();
    }

    applySidebarPinnedMode(loadSidebarPinnedSetting());
    switchToPage(0);
    new ForcedUpdateFlow(m_upgradeController, this);
    scheduleUpdateCheck();
}

MainWindow::~MainWindow()
{
    m_shareController->stopAllShares(false);
    // The clients may still report the end of their connections while the window's parts go.
    m_vaultClient->disconnect(this);
    delete m_recoveryClient;
    delete m_workflowWindow;
}

void MainWindow::buildServices(const MainWindowOptions &options)
{
    UpgradeEnvironment environment;
    environment.updateServer = options.updateServer;
    environment.vaultService = options.vaultService;
    m_upgradeController = new UpgradeController(m_appMode, this, environment);
    m_diagnostics = new GuiDiagnosticsRuntime(this);

    m_vaultReconnectTimer = new QTimer(this);
    m_vaultReconnectTimer->setObjectName(QStringLiteral("VaultReconnectTimer"));

    m_shareController = new FileShareController(this, QString(), options.vaultService);
    m_tray = new SystemTray(options.trayProbe, this);
    connect(m_shareController, &FileShareController::sessionListChanged, this,
            &MainWindow::updateTrayShareStatus);
    connect(m_tray, &SystemTray::showRequested, this, &MainWindow::bringToFront);
    connect(m_tray, &SystemTray::toggleRequested, this, &MainWindow::toggleVisible);
    connect(m_tray, &SystemTray::quitRequested, this, &MainWindow::quitFromTray);
}

void MainWindow::buildWindow()
{
    setWindowTitle(titleFor(m_appMode));
    setWindowIcon(QIcon(QStringLiteral(":/img/logo.png")));
    setMinimumSize(minimumWindowSize);
    setWindowFlags(FramelessWindowController::windowFlagsForPlatform());
    placeOnScreen();
}

void MainWindow::placeOnScreen()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen) {
        resize(sizeWithoutScreen);
        return;
    }
    const QRect available = screen->availableGeometry();
    // On a small screen three quarters fall below the least size; centre what really shows.
    const QSize wanted =
        QSize(available.width() * 3 / 4, available.height() * 3 / 4).expandedTo(minimumSize());
    QRect geometry(QPoint(), wanted);
    geometry.moveCenter(available.center());
    setGeometry(geometry);
}

void MainWindow::buildFrame()
{
    auto *root = new QWidget(this);
    root->setObjectName(QStringLiteral("MainWindowRoot"));
    root->setAttribute(Qt::WA_StyledBackground);
    auto *column = new QVBoxLayout(root);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);

    m_titleBar = new WindowTitleBar(root);
    m_titleBar->setTitle(windowTitle());
    if (!m_useCustomChrome) {
        m_titleBar->hide();
        m_titleBar->setFixedHeight(0);
    }
    column->addWidget(m_titleBar);

    QWidget *row = buildContentRow();
    column->addWidget(row, 1);
    setCentralWidget(root);

    // Beside the layout, so that it can open over the content.
    m_sidebar = new CollapsibleSidebar(row);
    m_sidebar->move(0, 0);
    m_sidebar->raise();
}

QWidget *MainWindow::buildContentRow()
{
    auto *row = new QWidget(this);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_sidebarHost = new QWidget(row);
    m_sidebarHost->setObjectName(QStringLiteral("SidebarHost"));
    m_sidebarHost->setFixedWidth(CollapsibleSidebar::collapsedWidth);
    layout->addWidget(m_sidebarHost);

    auto *card = new QFrame(row);
    card->setObjectName(QStringLiteral("RightCard"));
    auto *cardLayout = new QVBoxLayout(card);
    cardLayout->setContentsMargins(0, 0, 0, 0);
    m_pagesStack = new QStackedWidget(card);
    m_pagesStack->setObjectName(QStringLiteral("MainPagesStack"));
    cardLayout->addWidget(m_pagesStack);
    layout->addWidget(card, 1);
    return row;
}

void MainWindow::buildChrome()
{
    const ThemeColors &colors = ThemeColors::current();
    setStyleSheet(rootStyleSheet(colors) + ui::common::buildWindowChromeStyleSheet(colors.type));
    syncOutline();
    m_framelessController =
        new FramelessWindowController(this, m_titleBar, m_useCustomChrome, true, this);
    m_framelessController->syncWindowControlState();
}

void MainWindow::syncOutline()
{
    // Without a system frame a line of the window's own ground sets it off from what lies behind.
    const bool framed = m_useCustomChrome && !isMaximized() && !isFullScreen();
    const int line = framed ? 1 : 0;
    setContentsMargins(line, line, line, line);
}

void MainWindow::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::WindowStateChange)
        syncOutline();
}

void MainWindow::buildRecoveryServices(const QString &serviceName)
{
    m_recoveryClient = new IpcClient(serviceName, this);
    m_diskInfo = new DiskInfoProvider(m_recoveryClient, this);
    m_scanController = new ScanController(m_recoveryClient, this);
    m_recoveryController = new RecoveryController(m_recoveryClient, this);
    m_forensicsController = new ForensicsController(m_recoveryClient, this);
    followScans(m_scanController, this);
    followRecoveries(m_recoveryController, this);
    m_workflowWindow = new RecoveryWorkflowWindow;
}

void MainWindow::setupLiveCdIpc()
{
    auto *partitions = m_pagesStack->findChild<PartitionSelectPage *>();
    if (!m_recoveryClient || !partitions || !m_diskInfo || m_recoveryLink)
        return;
    m_recoveryLink = new RecoveryLink(m_recoveryClient, m_diskInfo, partitions, this);
    auto *forensics = m_pagesStack->findChild<BlockForensicsPage *>();
    auto *recent = m_pagesStack->findChild<RecentScansPage *>();
    if (forensics)
        connect(m_recoveryLink, &RecoveryLink::serviceConnected, forensics,
                &BlockForensicsPage::refresh);
    if (recent)
        connect(m_recoveryLink, &RecoveryLink::serviceConnected, recent, &RecentScansPage::refresh);
    if (auto *vaults = m_pagesStack->findChild<VaultBrowserPage *>()) {
        connect(m_recoveryLink, &RecoveryLink::serviceConnected, vaults,
                &VaultBrowserPage::onServiceConnected);
        connect(m_recoveryClient, &IpcClient::disconnected, vaults,
                &VaultBrowserPage::onServiceLost);
    }
}

void MainWindow::setupLiveCdFlow()
{
    auto *partitions = m_pagesStack->findChild<PartitionSelectPage *>();
    if (!partitions || !m_workflowWindow || !m_scanController || !m_recoveryController ||
        findChild<ScanFlow *>())
        return;
    new ScanFlow({m_recoveryClient, m_scanController, m_recoveryController, partitions,
                  m_workflowWindow,
                  [this] {
                      return m_recoveryLink && m_recoveryLink->hasRealDisks();
                  }},
                 this);
    new RecoveryFlow(m_recoveryClient, m_recoveryController, m_workflowWindow, this);
}

void MainWindow::buildVaultLink(const QString &serviceName, const core::ipc::ServicePolicy &policy)
{
    m_vaultClient = new IpcClient(serviceName, this, policy);
    m_vaultController = new VaultController(m_vaultClient, this);

    m_startupNoticeTimer = new QTimer(this);
    m_startupNoticeTimer->setObjectName(QStringLiteral("StartupNoticeTimer"));
    m_startupNoticeTimer->setSingleShot(true);
    m_startupNoticeTimer->setInterval(startupNoticeDelayMs);
    connect(m_startupNoticeTimer, &QTimer::timeout, this, [this] {
        AppNoticeDialog::showWarning(this, m_startupNotice.title, m_startupNotice.text);
    });

    m_vaultReconnectTimer->setInterval(vaultReconnectMs);
    connect(m_vaultReconnectTimer, &QTimer::timeout, this, [this] {
        if (!m_vaultClient->isConnected())
            m_vaultClient->connectToService();
    });
    const auto startRetrying = [this] {
        if (!m_vaultReconnectTimer->isActive())
            m_vaultReconnectTimer->start();
    };
    connect(m_vaultClient, &IpcClient::connected, this, [this] {
        qInfo("[MainWindow] VaultDaemon connected");
        m_vaultReconnectTimer->stop();
        m_vaultController->refreshStatus();
    });
    connect(m_vaultClient, &IpcClient::connectionError, this, startRetrying);
    connect(m_vaultClient, &IpcClient::disconnected, this, startRetrying);
    connect(m_vaultController, &VaultController::statusUpdated, this,
            &MainWindow::maybeShowVaultStartupStatusNotice);
    connect(m_vaultController, &VaultController::enableCompleted, this,
            &MainWindow::onProtectionSwitched);
    connect(m_vaultController, &VaultController::disableCompleted, this,
            &MainWindow::onProtectionSwitched);
}

void MainWindow::buildNavigation()
{
    const PageContext context{
        m_appMode,         m_pagesStack,         m_upgradeController,   m_shareController,
        m_vaultController, m_recoveryController, m_forensicsController, m_workflowWindow};
    const QVector<NavigationEntry> entries = navigationEntries(m_appMode);
    QString section;
    for (const NavigationEntry &entry : entries) {
        if (entry.section != section) {
            section = entry.section;
            m_sidebar->addSectionHeader(section, isEmphasizedSection(section));
        }
        const PageFactory build = [this, context, create = entry.create] {
            QWidget *page = create(context);
            wireSettings(page);
            return page;
        };
        QWidget *page = entry.eager ? build() : nullptr;
        const PageFactory factory = entry.eager ? PageFactory() : build;
        addNavPage(entry.label, entry.icon, page, entry.moduleKey, factory);
    }
    m_sidebar->addClosingStretch();
    m_sharePageIndex = pageIndexForModule(QStringLiteral("file_share"));
}

void MainWindow::buildShortcuts()
{
    auto *shortcuts = new KeyboardShortcuts(this);
    const auto show = [this](int index) {
        if (index < 0 || index >= m_pagesStack->count())
            return;
        if (!isActiveWindow())
            bringToFront();
        switchToPage(index);
    };
    connect(shortcuts, &KeyboardShortcuts::pageRequested, this, show);
    connect(shortcuts, &KeyboardShortcuts::helpRequested, this,
            [this, show] { show(pageIndexForModule(QStringLiteral("help"))); });
}

void MainWindow::wireSettings(QWidget *page)
{
    if (auto *settings = qobject_cast<GlobalSettingsPage *>(page))
        connect(settings, &GlobalSettingsPage::sidebarPinnedChanged, this,
                &MainWindow::applySidebarPinnedMode);
}

void MainWindow::scheduleUpdateCheck()
{
    QTimer::singleShot(updateCheckDelayMs, this, [this] {
        m_updateCheckDispatched = m_upgradeController->startupCheck();
        qInfo("MainWindow startup upgrade check scheduled result: dispatched=%s",
              m_updateCheckDispatched ? "true" : "false");
    });
}

void MainWindow::addNavPage(const QString &label, IconWidget::IconType icon, QWidget *page,
                            const QString &moduleKey, const PageFactory &factory)
{
    if (!page && !factory)
        return;
    if (!page) {
        page = new QWidget(m_pagesStack);
        page->setProperty(deferredProperty, true);
        page->setAttribute(Qt::WA_StyledBackground, false);
    }
    const int index = m_pagesStack->addWidget(page);

    auto *button = new SidebarNavButton(label, icon, m_sidebar);
    button->setObjectName(QStringLiteral("Nav_") + moduleKey);
    m_navButtons.append(button);
    m_moduleKeys.append(moduleKey);
    m_pageFactories.append(factory);
    m_sidebar->addButton(button);
    connect(button, &SidebarNavButton::clicked, this, [this, index] { switchToPage(index); });
}

bool MainWindow::ensurePageCreated(int index)
{
    if (!m_pagesStack || index < 0 || index >= m_pagesStack->count() ||
        index >= m_pageFactories.size())
        return false;
    QWidget *held = m_pagesStack->widget(index);
    if (!held->property(deferredProperty).toBool() || !m_pageFactories.at(index))
        return true;

    // Out of the list while it runs, so that a page that shows itself cannot be built twice.
    const PageFactory factory = std::exchange(m_pageFactories[index], PageFactory());
    QWidget *page = factory();
    if (!page) {
        m_pageFactories[index] = factory;
        return true;
    }
    if (page->parentWidget() != m_pagesStack)
        page->setParent(m_pagesStack);
    m_pagesStack->insertWidget(index, page);
    m_pagesStack->removeWidget(held);
    held->deleteLater();
    return true;
}

void MainWindow::showPageIndex(int index)
{
    if (index < 0 || !ensurePageCreated(index))
        return;
    m_pagesStack->setCurrentIndex(index);
    m_diagnostics->setCurrentPage(m_moduleKeys.at(index));
    for (int i = 0; i < m_navButtons.size(); ++i)
        m_navButtons.at(i)->setActive(i == index);
    if (auto *forensics = qobject_cast<BlockForensicsPage *>(m_pagesStack->currentWidget()))
        forensics->refresh();
}

void MainWindow::switchToPage(int index)
{
    if (index >= 0 && index < m_pagesStack->count())
        showPageIndex(index);
}

void MainWindow::switchToSharePage()
{
    bringToFront();
    switchToPage(m_sharePageIndex);
}

int MainWindow::pageIndexForModule(const QString &moduleKey) const
{
    return m_moduleKeys.indexOf(moduleKey);
}

void MainWindow::applySidebarPinnedMode(bool pinned)
{
    m_sidebar->setPinned(pinned);
    m_sidebarHost->setFixedWidth(pinned ? CollapsibleSidebar::expandedWidth
                                        : CollapsibleSidebar::collapsedWidth);
}

bool MainWindow::loadSidebarPinnedSetting() const
{
    const QSettings settings(morvaneConfigPath(), QSettings::IniFormat);
    return settings.value(QStringLiteral("ui/sidebarMode"), QStringLiteral("collapsed"))
               .toString() == QLatin1String("pinned");
}

void MainWindow::bringToFront()
{
    showNormal();
    raise();
    activateWindow();
}

void MainWindow::setupSystemTray()
{
    m_tray->setup();
    updateTrayShareStatus();
}

void MainWindow::scheduleSystemTrayRetry(int delayMs)
{
    m_tray->scheduleRetry(delayMs);
}

void MainWindow::updateTrayShareStatus()
{
    m_tray->setSharesActive(m_shareController->hasActiveShares());
}

void MainWindow::toggleVisible()
{
    if (isVisible() && !isMinimized())
        hide();
    else
        bringToFront();
}

void MainWindow::quitFromTray()
{
    m_shareController->stopAllShares();
    m_tray->hide();
    QCoreApplication::quit();
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    if (m_tray->isVisible()) {
        // The program goes on in the background, with its services and file shares.
        hide();
        event->ignore();
        return;
    }
    const QPointer<MainWindow> self(this);
    if (m_workflowWindow && !mayEndRun()) {
        event->ignore();
        return;
    }
    if (!self)
        return;
    // The run ends with the last window; a scan or a recovery goes on in the service.
    if (m_workflowWindow)
        m_workflowWindow->close();
    QMainWindow::closeEvent(event);
}

bool MainWindow::mayEndRun()
{
    using Work = RecoveryWorkflowWindow::Work;
    const Work work = m_workflowWindow->workUnderWay();
    if (work == Work::None)
        return true;
    if (m_isAskingToClose)
        return false;
    const QPointer<MainWindow> self(this);
    m_isAskingToClose = true;
    const bool confirmed = AppNoticeDialog::confirm(
        this, work == Work::Scan ? tr("扫描仍在进行") : tr("恢复仍在进行"),
        tr("正在进行的任务会在恢复服务中继续，但退出后看不到它的进度和结果，也无法停止它。"
           "确定要退出吗？"),
        tr("仍然退出"), tr("取消"));
    if (self)
        m_isAskingToClose = false;
    return confirmed;
}

void MainWindow::onProtectionSwitched()
{
    m_vaultStartupNoticeShown = true;
    m_startupNoticeTimer->stop();
}

void MainWindow::maybeShowVaultStartupStatusNotice(const QJsonObject &status)
{
    if (m_appMode != AppMode::normal || m_vaultStartupNoticeShown)
        return;
    const std::optional<StartupNotice> notice = vaultStartupNotice(status);
    if (!notice)
        return;
    m_vaultStartupNoticeShown = true;
    m_startupNotice = *notice;
    m_startupNoticeTimer->start();
}
