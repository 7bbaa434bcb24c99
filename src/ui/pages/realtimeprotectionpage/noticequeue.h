#pragma once

#include "ui/common/appnoticedialog.h"

#include <QList>
#include <QObject>

/// Notices out of the service's answers, one at a time. They come up from the event loop, since a
/// dialog inside an answer would hold back all further ones; what waits already is not added twice,
/// as when a lost link fails several requests at once. GUI thread only.
class NoticeQueue : public QObject
{
    Q_OBJECT

public:
    using NoticeType = ui::common::AppNoticeDialog::NoticeType;

    /// The notices stand over `owner` and go with it.
    explicit NoticeQueue(QWidget *owner);

    /// Success is shown as information.
    void add(NoticeType type, const QString &title, const QString &message);

private:
    struct Notice
    {
        NoticeType type;
        QString title;
        QString message;
        bool operator==(const Notice &other) const
        {
            return type == other.type && title == other.title && message == other.message;
        }
    };

    void showAll();
    void show(const Notice &notice);

    QWidget *m_owner;
    QList<Notice> m_notices; ///< The first one is being shown, or is about to be.
};
