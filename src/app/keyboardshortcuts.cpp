#include "app/keyboardshortcuts.h"

#include "ui/common/keyroles.h"
#include "ui/common/rowmenu.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDialog>
#include <QLineEdit>

using ui::common::controlOf;
using ui::common::KeyRole;

namespace {

// Also a disabled button takes the key, so that it does not go on to something else.
bool press(QWidget *control)
{
    auto *button = qobject_cast<QAbstractButton *>(control);
    if (!button)
        return false;
    button->click();
    return true;
}

bool isProgramWindow(const QWidget *window)
{
    return !qobject_cast<const QDialog *>(window) && window->windowType() != Qt::Popup &&
           !QApplication::activeModalWidget() && !QApplication::activePopupWidget();
}

bool isReturn(const QKeyEvent *event)
{
    return event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
}

bool copyRows(const QAbstractItemView *view, const QKeyEvent *event)
{
    const QString rows =
        event->matches(QKeySequence::Copy) ? ui::common::copiedRows(view) : QString();
    if (rows.isEmpty())
        return false;
    QApplication::clipboard()->setText(rows);
    return true;
}

bool openRowMenu(QAbstractItemView *view, const QContextMenuEvent *event)
{
    if (view->contextMenuPolicy() != Qt::DefaultContextMenu)
        return false;
    const bool isMouse = event->reason() == QContextMenuEvent::Mouse;
    const QModelIndex index =
        isMouse ? view->indexAt(view->viewport()->mapFromGlobal(event->globalPos()))
                : view->currentIndex();
    if (!index.isValid())
        return false;
    const QPoint place = isMouse
                             ? event->globalPos()
                             : view->viewport()->mapToGlobal(view->visualRect(index).bottomLeft());
    ui::common::showRowMenu(view, index, place);
    return true;
}

} // namespace

KeyboardShortcuts::KeyboardShortcuts(QObject *parent)
    : QObject(parent)
{
    qApp->installEventFilter(this);
}

bool KeyboardShortcuts::eventFilter(QObject *watched, QEvent *event)
{
    if (!watched->isWidgetType() || m_isForwarding)
        return false;
    auto *widget = static_cast<QWidget *>(watched);
    if (event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (isProgramWindow(widget->window()))
            return takeKey(widget, key);
        auto *list = qobject_cast<QAbstractItemView *>(widget);
        return list && copyRows(list, key);
    }
    if (event->type() != QEvent::ContextMenu)
        return false;
    auto *view = qobject_cast<QAbstractItemView *>(widget);
    if (!view)
        view = qobject_cast<QAbstractItemView *>(widget->parentWidget());
    return view && openRowMenu(view, static_cast<QContextMenuEvent *>(event));
}

bool KeyboardShortcuts::takeKey(QWidget *receiver, const QKeyEvent *event)
{
    // A key that nobody took climbs from parent to parent; it counts where it began.
    const QWidget *focused = QApplication::focusWidget();
    if (focused && focused->window() == receiver->window() && focused != receiver)
        return false;
    if (takeWindowKey(receiver->window(), event))
        return true;
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier)
        return takeEscape(receiver);
    auto *view = qobject_cast<QAbstractItemView *>(receiver);
    return view && takeViewKey(view, event);
}

bool KeyboardShortcuts::takeWindowKey(const QWidget *window, const QKeyEvent *event)
{
    const Qt::KeyboardModifiers modifiers = event->modifiers() & ~Qt::KeypadModifier;
    const int key = event->key();
    if (modifiers == Qt::NoModifier && key == Qt::Key_F1) {
        emit helpRequested();
        return true;
    }
    if (modifiers == Qt::NoModifier && key == Qt::Key_F5)
        return press(controlOf(window, KeyRole::Refresh));
    if (modifiers != Qt::ControlModifier)
        return false;
    if (key >= Qt::Key_1 && key <= Qt::Key_9) {
        emit pageRequested(key - Qt::Key_1);
        return true;
    }
    if (isReturn(event))
        return press(ui::common::primaryControlOf(window));
    QWidget *search = key == Qt::Key_F ? controlOf(window, KeyRole::Search) : nullptr;
    if (!search)
        return false;
    search->setFocus(Qt::ShortcutFocusReason);
    if (auto *edit = qobject_cast<QLineEdit *>(search))
        edit->selectAll();
    return true;
}

bool KeyboardShortcuts::takeViewKey(QAbstractItemView *view, const QKeyEvent *event)
{
    if (copyRows(view, event))
        return true;
    if (event->key() != Qt::Key_Delete || event->modifiers() != Qt::NoModifier)
        return false;
    return press(controlOf(view->window(), KeyRole::Remove)) ||
           ui::common::runDangerousAction(view, view->currentIndex());
}

bool KeyboardShortcuts::takeEscape(QWidget *receiver)
{
    if (QWidget *panel = controlOf(receiver->window(), KeyRole::Panel)) {
        QKeyEvent key(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
        m_isForwarding = true;
        QCoreApplication::sendEvent(panel, &key);
        m_isForwarding = false;
        return true;
    }
    auto *edit = qobject_cast<QLineEdit *>(receiver);
    const bool isFilter = edit && controlOf(receiver->window(), KeyRole::Search) == edit;
    if (!isFilter || edit->text().isEmpty())
        return false;
    edit->clear();
    return true;
}
