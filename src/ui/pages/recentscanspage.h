#pragma once

#include "ui/pages/recentscanspage/sessionrules.h"

#include <QPointer>
#include <QWidget>

class QHBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QSortFilterProxyModel;
class QStackedWidget;
class QTableView;
class RecoveryHistoryDialog;
class RecoveryWorkflowWindow;

namespace core {
namespace controllers {
class RecoveryController;
}
} // namespace core
namespace ui {
namespace common {
class EmptyState;
class WrapLabel;
} // namespace common
} // namespace ui

/// The scan sessions that the recovery service keeps: opens one in the workflow window again, shows
/// its recovery tasks, deletes it. GUI thread only.
class RecentScansPage : public QWidget
{
    Q_OBJECT

public:
    /// Without a controller the page stays empty; without a window nothing can be opened.
    RecentScansPage(core::controllers::RecoveryController *controller,
                    RecoveryWorkflowWindow *workflowWindow, QWidget *parent = nullptr);

    /// Asks for the newest 50 sessions, once more if a list is still on its way. A failure is told
    /// on the page and leaves its rows.
    void refresh();
    void requestViewSession(const QString &sessionId);
    void requestViewRecoveryHistory(const QString &sessionId);
    /// Asks the user first. The row after the next refresh near `row` becomes the current one.
    void requestDeleteSession(const QString &sessionId, int row);

protected:
    void showEvent(QShowEvent *event) override;

public slots:
    void onSessionListReceived(const QJsonArray &sessions);
    void onSessionDetailReceived(const QString &sessionId, const QJsonObject &detail);
    void onSessionFilesReceived(const QString &sessionId, const QJsonArray &files);
    void onRecoveryTaskDetailReceived(const QString &recoveryId, const QJsonObject &detail);
    void onSessionDeleted(const QString &sessionId, bool success);

private:
    enum Action { ViewAction, HistoryAction, DeleteAction };

    QHBoxLayout *buildHeader();
    QHBoxLayout *buildSearchRow();
    QTableView *buildTable();
    QWidget *buildViews();
    void wireController();
    void applyFilter();
    void showEmptyState();
    void showMessage(const QString &message, bool isError);
    void onQueryFailed(const QString &method, const QString &id, const QString &message);
    void onActionTriggered(const QModelIndex &index, int action);
    void tryOpenPendingSession();
    void openHistory(const QString &sessionId, const QJsonObject &detail);
    bool mayReplaceShownWork();

    QPointer<core::controllers::RecoveryController> m_controller;
    QPointer<RecoveryWorkflowWindow> m_window;
    recentscans::PendingSession m_pending;
    QString m_historySession;
    QPointer<RecoveryHistoryDialog> m_history;
    bool m_isLoading = false;
    bool m_needsReload = false; ///< The list on its way may be out of date.
    bool m_isListed = false;    ///< A list has come.
    QString m_listFailure;      ///< Why the last list did not come.
    int m_wantedRow = -1;       ///< Of the table, after the next list.

    ui::common::CellTableModel *m_sessions;
    QSortFilterProxyModel *m_shown;
    QLineEdit *m_search = nullptr;
    QPushButton *m_refresh = nullptr;
    ui::common::WrapLabel *m_message = nullptr;
    QTableView *m_table = nullptr;
    QStackedWidget *m_views = nullptr;
    ui::common::EmptyState *m_empty = nullptr;
    QLabel *m_status = nullptr;
};
