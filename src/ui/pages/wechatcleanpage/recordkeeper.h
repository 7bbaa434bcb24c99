#pragma once

#include <QObject>
#include <QPointer>
#include <QVariantList>
#include <QVariantMap>

class QWidget;

namespace wechatclean {

class CleanTasks;
class HistoryDialog;

/// The records as last read, and the dialog that shows them.
class RecordKeeper : public QObject
{
    Q_OBJECT

public:
    /// `page` becomes the parent of this and of the dialog.
    RecordKeeper(CleanTasks *tasks, QWidget *page);

    void openDialog();
    /// Reads the records anew; the dialog follows.
    void refresh();
    /// While something runs the dialog offers no undo.
    void setBusy(bool isBusy);
    /// Empty if the records as last read have none of this session.
    QVariantMap record(const QString &sessionId) const;
    /// Whose child a notice has to be: the dialog is modal, and what opens behind it could not be
    /// answered.
    QWidget *noticeParent() const;
    static QString busyText();

signals:
    void undoRequested(const QString &sessionId);

private:
    void onRecordsRead(const QVariantList &records, int refused);

    CleanTasks *m_tasks;
    QWidget *m_page;
    QPointer<HistoryDialog> m_dialog;
    QVariantList m_records;
    bool m_isBusy = false;
};

} // namespace wechatclean
