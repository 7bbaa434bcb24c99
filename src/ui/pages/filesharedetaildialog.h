#pragma once

#include "ui/common/framelessdialog.h"
#include "ui/common/sharepathchooser.h"

#include <QPointer>

class FileShareController;
class QStackedWidget;
class QTimer;

namespace fileshare {
class AccessLogPanel;
class BusyNote;
class EditCard;
class OperationGate;
class ViewCard;
} // namespace fileshare

/// One share: its facts, links and access log, which follow what happens, and its editing. It does
/// not close while the controller works for it.
class FileShareDetailDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    FileShareDetailDialog(FileShareController *controller, const QString &sessionId,
                          QWidget *parent = nullptr);

    /// What stands in for the file dialogs.
    void setPathChooser(const fileshare::SharePathChooser &chooser) { m_chooser = chooser; }
    QString sessionId() const { return m_sessionId; }
    bool isEditing() const;

public slots:
    void refreshView();
    void refreshAccessLog();
    void onCopyUrl();
    void switchToEditMode();
    void switchToViewMode();
    void onStopAndEdit();
    void onSaveAndRestart();
    void onEditAddFiles();
    void onEditAddFolder();
    void onPrevPage();
    void onNextPage();
    void onFilterChanged();
    void reject() override;

private:
    enum Mode { ViewMode, EditMode, MissingMode };

    void buildModes();
    void buildButtons();
    void wireController();
    void showMode(Mode mode);
    void onEdit();
    void onStop();
    bool canOperate() const;

    QPointer<FileShareController> m_controller;
    QString m_sessionId;
    int m_page = 0;  ///< Of the log, from 0.
    int m_total = 0; ///< Entries of the log that the filter lets through.
    fileshare::SharePathChooser m_chooser;
    QTimer *m_logTimer;

    QStackedWidget *m_modes = nullptr;
    fileshare::ViewCard *m_view = nullptr;
    fileshare::AccessLogPanel *m_log = nullptr;
    fileshare::EditCard *m_editor = nullptr;
    fileshare::BusyNote *m_busyNote = nullptr;
    fileshare::OperationGate *m_gate = nullptr;
    QPushButton *m_stop = nullptr;
    QPushButton *m_edit = nullptr;
    QPushButton *m_close = nullptr;
    QPushButton *m_cancel = nullptr;
    QPushButton *m_save = nullptr;
};
