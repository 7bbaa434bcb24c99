#pragma once

#include "ui/common/framelessdialog.h"

#include <QVariantList>
#include <QVariantMap>

class QLabel;
class QScrollArea;
class QStackedWidget;
class QVBoxLayout;

namespace ui {
namespace common {
class EmptyState;
}
} // namespace ui

namespace wechatclean {

/// The cleaner's records, newest first, each with its details and its undo. Reads nothing itself.
/// Object names: WechatHistoryDialog, WechatRecordStack, WechatRecordState, WechatRecordList,
/// WechatRecordItem (property `sessionId`), WechatRecordTime, WechatRecordStatus,
/// WechatRecordOverview, WechatRecordDetailButton, WechatRecordUndoButton, WechatRecordDetail,
/// WechatRecordFiles, WechatRecordMore, WechatHistoryNote, WechatHistoryClose.
class HistoryDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    explicit HistoryDialog(QWidget *parent = nullptr);

    /// Maps as loadOperationRecords() gives them; `refused` as there.
    void setRecords(const QVariantList &records, int refused);
    /// No undo can be asked for meanwhile; the note says why.
    void setBusy(const QString &note);

signals:
    void undoRequested(const QString &sessionId);

private:
    void addItems();
    QWidget *makeItem(const QVariantMap &record);
    QWidget *buildRecordDetailPanel(const QVariantMap &record);
    void showNote();

    QVariantList m_records;
    int m_refused = 0;
    int m_shown = 0;
    QString m_busy;
    QLabel *m_note;
    QStackedWidget *m_stack;
    ui::common::EmptyState *m_state;
    QScrollArea *m_list;
    QVBoxLayout *m_items = nullptr;
};

} // namespace wechatclean
