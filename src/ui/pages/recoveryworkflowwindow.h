#pragma once

#include <QWidget>

class QStackedWidget;
class RecoveryProgressPage;
class ScanResultsPage;

namespace ui {
namespace common {
class FramelessWindowController;
}
} // namespace ui

/// The second window of the recovery environment: the scan's results and the recovery's progress.
/// Made once, hidden, and used for every scan.
class RecoveryWorkflowWindow : public QWidget
{
    Q_OBJECT

public:
    enum Page { ScanPage = 0, RecoveryPage = 1 };
    /// What is, or after a lost link may be, under way in the service.
    enum class Work { None, Scan, Recovery };

    RecoveryWorkflowWindow();

    ScanResultsPage *scanPage() const { return m_scanPage; }
    RecoveryProgressPage *recoveryPage() const { return m_recoveryPage; }
    /// Names the scan where both are.
    Work workUnderWay() const;

    /// Each shows its page and brings the window to the front.
    void openScanPage();
    void openRecoveryPage();

private:
    void openPage(Page page);

    bool m_useCustomChrome;
    QStackedWidget *m_pages;
    ScanResultsPage *m_scanPage;
    RecoveryProgressPage *m_recoveryPage;
    ui::common::FramelessWindowController *m_framelessController;
};
