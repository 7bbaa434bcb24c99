#include "ui/pages/realtimeprotectionpage/noticequeue.h"

#include <QPointer>
#include <QTimer>
#include <QWidget>

using ui::common::AppNoticeDialog;

NoticeQueue::NoticeQueue(QWidget *owner)
    : QObject(owner)
    , m_owner(owner)
{}

void NoticeQueue::add(NoticeType type, const QString &title, const QString &message)
{
    const Notice notice{type, title, message};
    if (m_notices.contains(notice))
        return;
    m_notices.append(notice);
    if (m_notices.size() == 1)
        QTimer::singleShot(0, this, &NoticeQueue::showAll);
}

void NoticeQueue::showAll()
{
    const QPointer<NoticeQueue> self(this);
    while (!m_notices.isEmpty()) {
        show(m_notices.first());
        // The page may go with its window while the notice is open.
        if (!self)
            return;
        m_notices.removeFirst();
    }
}

void NoticeQueue::show(const Notice &notice)
{
    if (notice.type == AppNoticeDialog::Error)
        AppNoticeDialog::showError(m_owner, notice.title, notice.message);
    else if (notice.type == AppNoticeDialog::Warning)
        AppNoticeDialog::showWarning(m_owner, notice.title, notice.message);
    else
        AppNoticeDialog::showInfo(m_owner, notice.title, notice.message);
}
