#include "ui/common/filedroptarget.h"

#include "ui/common/utils/sharetext.h"

#include <QDropEvent>
#include <QMimeData>
#include <QWidget>

namespace fileshare {

FileDropTarget::FileDropTarget(QWidget *target)
    : QObject(target)
{
    target->setAcceptDrops(true);
    target->installEventFilter(this);
}

void FileDropTarget::setActive(bool active)
{
    m_active = active;
    if (!active)
        emit hovered(false);
}

bool FileDropTarget::takesDrag(QDropEvent *event) const
{
    if (!m_active || localPaths(event->mimeData()->urls()).isEmpty()) {
        event->ignore();
        return false;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
    return true;
}

bool FileDropTarget::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::DragEnter:
    case QEvent::DragMove:
        emit hovered(takesDrag(static_cast<QDropEvent *>(event)));
        return true;
    case QEvent::DragLeave:
        emit hovered(false);
        return true;
    case QEvent::Drop: {
        auto *drop = static_cast<QDropEvent *>(event);
        emit hovered(false);
        if (takesDrag(drop))
            emit dropped(localPaths(drop->mimeData()->urls()));
        return true;
    }
    default:
        return QObject::eventFilter(watched, event);
    }
}

} // namespace fileshare
