#include "ui/pages/wechatcleanpage/recordkeeper.h"

#include "ui/pages/wechatcleanpage/cleantasks.h"
#include "ui/pages/wechatcleanpage/historydialog.h"

namespace wechatclean {

RecordKeeper::RecordKeeper(CleanTasks *tasks, QWidget *page)
    : QObject(page)
    , m_tasks(tasks)
    , m_page(page)
{
    connect(tasks, &CleanTasks::recordsRead, this, &RecordKeeper::onRecordsRead);
}

void RecordKeeper::openDialog()
{
    if (!m_dialog) {
        m_dialog = new HistoryDialog(m_page);
        m_dialog->setAttribute(Qt::WA_DeleteOnClose);
        connect(m_dialog, &HistoryDialog::undoRequested, this, &RecordKeeper::undoRequested);
    }
    m_dialog->show();
    refresh();
}

void RecordKeeper::refresh()
{
    m_tasks->readRecords();
}

void RecordKeeper::onRecordsRead(const QVariantList &records, int refused)
{
    m_records = records;
    if (!m_dialog)
        return;
    m_dialog->setRecords(records, refused);
    setBusy(m_isBusy);
}

void RecordKeeper::setBusy(bool isBusy)
{
    m_isBusy = isBusy;
    if (m_dialog)
        m_dialog->setBusy(isBusy ? busyText() : QString());
}

QString RecordKeeper::busyText()
{
    return tr("有任务正在进行，完成后才能撤销。");
}

QVariantMap RecordKeeper::record(const QString &sessionId) const
{
    for (const QVariant &entry : m_records) {
        const QVariantMap record = entry.toMap();
        if (record.value(QStringLiteral("sessionId")).toString() == sessionId)
            return record;
    }
    return QVariantMap();
}

QWidget *RecordKeeper::noticeParent() const
{
    if (m_dialog && m_dialog->isVisible())
        return m_dialog;
    return m_page;
}

} // namespace wechatclean
