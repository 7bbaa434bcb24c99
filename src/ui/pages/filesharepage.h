#pragma once

#include "ui/common/sharepathchooser.h"

#include <QPointer>
#include <QSet>
#include <QWidget>

class FileShareController;
class QBoxLayout;
class QTimer;

namespace fileshare {
class BusyNote;
class FileDropTarget;
class OperationGate;
class PendingCard;
class RecordsPanel;
class SessionTable;
class SharePathAdder;
} // namespace fileshare

/// File sharing in the local network: the files of the next share, and the records of all shares.
/// The controller's operations may wait in a nested event loop; the page lets one run at a time.
class FileSharePage : public QWidget
{
    Q_OBJECT

public:
    explicit FileSharePage(FileShareController *controller, QWidget *parent = nullptr);
    ~FileSharePage() override;

    /// What stands in for the file dialogs, also in the dialogs of this page.
    void setPathChooser(const fileshare::SharePathChooser &chooser) { m_chooser = chooser; }

public slots:
    /// Ignores what is listed already. Asks first about what holds private folders; the paths are
    /// looked at in the background, so they are listed a little later.
    void addPathsToList(const QStringList &paths);
    void onAddFiles();
    void onAddFolder();
    void onRemoveSelected();
    void onClearFiles();
    void onOpenShareSettings();
    void onStartShare();

    void refreshSessionList();
    /// Serves a change of the records that came while the page was hidden or busy.
    void flushDeferredSessionRefresh();
    void onStopSession(const QString &id);
    void onRestartSession(const QString &id);
    void onRemoveSession(const QString &id);
    void onShowDetail(const QString &id);
    void onSessionDoubleClicked(int row, int column);
    void onStartAllSessions();
    void onStopAllSessions();
    void onRemoveAllSessions();

    void updateStartButtonState();
    void updateDropHintGeometry();

protected:
    void showEvent(QShowEvent *event) override;

private:
    QBoxLayout *buildHeader();
    void buildPending();
    void buildRecords();
    void wireDrops();
    void wireController();

    /// Whether a change of the shares may begin now.
    bool canOperate() const;
    void onSessionListChanged();
    void onAccessLogUpdated(const QString &id);
    void updateTouchedSessions();
    void onBusyChanged(const QString &what);
    void onSessionAction(const QString &id, int action);

    QPointer<FileShareController> m_controller;
    fileshare::SharePathChooser m_chooser;
    bool m_refreshDeferred = true; ///< The records have changed since they were shown.
    QSet<QString> m_touched;       ///< Sessions whose counters have changed.
    QTimer *m_touchedTimer;
    fileshare::SharePathAdder *m_adder;

    fileshare::BusyNote *m_busyNote = nullptr;
    fileshare::PendingCard *m_pending = nullptr;
    fileshare::RecordsPanel *m_records = nullptr;
    fileshare::SessionTable *m_table = nullptr;
    fileshare::FileDropTarget *m_dropTarget = nullptr;
    fileshare::OperationGate *m_gate = nullptr;
};
