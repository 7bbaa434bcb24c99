#include "ui/pages/recoveryprogresspage/pathlink.h"

#include "ui/common/accessibility.h"
#include "ui/common/widgetstyle.h"

#include <QKeyEvent>
#include <QMouseEvent>

namespace recoveryprogress {

PathLink::PathLink(const QString &text, QWidget *parent)
    : ElidedLabel(text, Qt::ElideMiddle, parent)
{
    ui::common::setAccessibleRole(this, QAccessible::Link);
}

void PathLink::setPath(const QString &path, const QString &placeholder)
{
    m_isLink = !path.isEmpty();
    setText(m_isLink ? path : placeholder);
    setAccessibleName(text());
    setToolTip(m_isLink ? tr("打开目录 %1").arg(path) : QString());
    setFocusPolicy(m_isLink ? Qt::StrongFocus : Qt::NoFocus);
    setCursor(m_isLink ? Qt::PointingHandCursor : Qt::ArrowCursor);
    ui::common::setStyleProperty(this, "link", m_isLink ? QStringLiteral("true") : QString());
}

void PathLink::mouseReleaseEvent(QMouseEvent *event)
{
    if (m_isLink && event->button() == Qt::LeftButton && rect().contains(event->pos()))
        emit activated();
    else
        ElidedLabel::mouseReleaseEvent(event);
}

void PathLink::keyPressEvent(QKeyEvent *event)
{
    const bool opens = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter ||
                       event->key() == Qt::Key_Space;
    if (m_isLink && opens)
        emit activated();
    else
        ElidedLabel::keyPressEvent(event);
}

} // namespace recoveryprogress
