#pragma once

#include "ui/common/framelessdialog.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QVector>

class QStackedWidget;
class QTableView;
class QVBoxLayout;

namespace recoveryresult {
class FileResultModel;
}
namespace ui {
namespace common {
class CellTableModel;
class ElidedLabel;
class EmptyState;
} // namespace common
} // namespace ui

/// The recovery tasks of one scan session, and the files of the task that is chosen. Asks for a
/// task's detail by a signal and does not ask again for one that it has.
class RecoveryHistoryDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    explicit RecoveryHistoryDialog(QWidget *parent = nullptr);

    void setSessionInfo(const QString &sessionId, const QString &devicePath);
    /// Chooses the first task.
    void setRecoveryTasks(const QJsonArray &tasks);
    /// Does nothing for a task that is not the chosen one.
    void setRecoveryTaskDetail(const QString &recoveryId, const QJsonObject &detail);
    void setRecoveryTaskFailed(const QString &recoveryId, const QString &message);

signals:
    void recoveryTaskRequested(const QString &recoveryId);

private:
    QVBoxLayout *buildHeading();
    QWidget *buildTasks();
    QWidget *buildFiles();
    void chooseTask(int row);
    void requestChosen();
    void showFiles(const QJsonObject &detail);
    void openFileDetailForRow(int row);

    QString m_chosenTask; ///< Recovery id; empty without a task.
    ui::common::CellTableModel *m_tasks;
    recoveryresult::FileResultModel *m_files;
    ui::common::ElidedLabel *m_session = nullptr;
    QStackedWidget *m_pages; ///< The two tables, or that there is nothing.
    QTableView *m_taskTable = nullptr;
    QStackedWidget *m_fileViews = nullptr;
    ui::common::EmptyState *m_fileState = nullptr;
};
