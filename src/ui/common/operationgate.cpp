#include "ui/common/operationgate.h"

#include <QApplication>
#include <QStringList>
#include <QWidget>

namespace fileshare {

OperationGate::OperationGate(const QList<QWidget *> &locked, QObject *owner)
    : QObject(owner)
{
    for (QWidget *widget : locked)
        m_locked.append(widget);
}

bool OperationGate::run(const QString &what, const std::function<void()> &operation)
{
    if (m_isBusy)
        return false;
    const QPointer<OperationGate> self(this);
    lock(true);
    emit changed(what);
    operation();
    if (!self)
        return false;
    lock(false);
    emit changed(QString());
    return !self.isNull();
}

bool OperationGate::runForEach(const QString &what, const QStringList &ids,
                               const std::function<void(const QString &id)> &operation)
{
    return run(what, [this, what, ids, operation] {
        const QPointer<OperationGate> self(this);
        for (int i = 0; self && i < ids.size(); ++i) {
            emit changed(QStringLiteral("%1 %2 / %3")
                             .arg(what, QString::number(i + 1), QString::number(ids.size())));
            operation(ids.at(i));
        }
    });
}

void OperationGate::lock(bool locked)
{
    m_isBusy = locked;
    if (locked)
        m_focus = QApplication::focusWidget();
    for (const QPointer<QWidget> &widget : qAsConst(m_locked)) {
        if (widget)
            widget->setEnabled(!locked);
    }
    if (!locked && m_focus && m_focus->isEnabled() && m_focus->isVisible())
        m_focus->setFocus();
}

} // namespace fileshare
