#include "ui/pages/recoveryworkflowwindow.h"

#include "ui/common/accessibility.h"
#include "ui/common/framelesswindowcontroller.h"
#include "ui/common/styletemplate.h"
#include "ui/common/theme.h"
#include "ui/common/windowtitlebar.h"
#include "ui/pages/recoveryprogresspage.h"
#include "ui/pages/scanresultspage.h"

#include <QIcon>
#include <QStackedWidget>
#include <QVBoxLayout>

using ui::common::FramelessWindowController;
using ui::common::WindowTitleBar;

namespace {

constexpr QSize kSize(1280, 768);
constexpr QSize kMinimumSize(1024, 700);

QString windowSheet(bool isFrameless)
{
    QString sheet =
        ui::common::buildWindowChromeStyleSheet(ui::common::ThemeColors::current().type);
    // Without a system frame a line sets the window off from the main one, of the same ground.
    if (isFrameless)
        sheet += ui::common::fillStyleTemplate(
            QStringLiteral("QWidget#RecoveryWorkflowWindow { border: 1px solid @border@; }"));
    return sheet;
}

} // namespace

RecoveryWorkflowWindow::RecoveryWorkflowWindow()
    : m_useCustomChrome(FramelessWindowController::shouldUseCustomChrome())
    , m_pages(new QStackedWidget(this))
    , m_scanPage(new ScanResultsPage(m_pages))
    , m_recoveryPage(new RecoveryProgressPage(m_pages))
    , m_framelessController(nullptr)
{
    setObjectName(QStringLiteral("RecoveryWorkflowWindow"));
    ui::common::setAccessibleRole(this, QAccessible::Window);
    setAttribute(Qt::WA_StyledBackground);
    setWindowTitle(tr("墨川归档 - 扫描与恢复"));
    setWindowIcon(QIcon(QStringLiteral(":/img/logo.png")));
    setWindowFlags(FramelessWindowController::windowFlagsForPlatform());
    setMinimumSize(kMinimumSize);
    resize(kSize);
    setStyleSheet(windowSheet(m_useCustomChrome));

    auto *titleBar = new WindowTitleBar(this);
    m_pages->insertWidget(ScanPage, m_scanPage);
    m_pages->insertWidget(RecoveryPage, m_recoveryPage);
    auto *column = new QVBoxLayout(this);
    const int line = m_useCustomChrome ? 1 : 0;
    column->setContentsMargins(line, line, line, line);
    column->setSpacing(0);
    column->addWidget(titleBar);
    column->addWidget(m_pages, 1);
    m_framelessController =
        new FramelessWindowController(this, titleBar, m_useCustomChrome, true, this);
    m_framelessController->syncWindowControlState();
}

RecoveryWorkflowWindow::Work RecoveryWorkflowWindow::workUnderWay() const
{
    if (m_scanPage->isScanUnderWay())
        return Work::Scan;
    return m_recoveryPage->isRecoveryUnderWay() ? Work::Recovery : Work::None;
}

void RecoveryWorkflowWindow::openScanPage()
{
    openPage(ScanPage);
}

void RecoveryWorkflowWindow::openRecoveryPage()
{
    openPage(RecoveryPage);
}

void RecoveryWorkflowWindow::openPage(Page page)
{
    m_pages->setCurrentIndex(page);
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}
