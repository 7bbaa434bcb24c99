#pragma once

#include <QObject>

class QAbstractItemView;
class QKeyEvent;
class QWidget;

/// The keys of the whole program, whichever control has the focus: pages, help, search field,
/// refresh and the main action go before the control; removing, copying and Escape only where the
/// control is a list or leaves the key alone. The Menu key and the right button open the menu of a
/// row. Works on all windows but dialogs, through the roles that pages give to their controls. GUI
/// thread only.
class KeyboardShortcuts : public QObject
{
    Q_OBJECT

public:
    /// Watches the application's events.
    explicit KeyboardShortcuts(QObject *parent);

signals:
    /// Ctrl+1 to Ctrl+9 as 0 to 8.
    void pageRequested(int index);
    void helpRequested();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool takeKey(QWidget *receiver, const QKeyEvent *event);
    bool takeWindowKey(const QWidget *window, const QKeyEvent *event);
    bool takeViewKey(QAbstractItemView *view, const QKeyEvent *event);
    bool takeEscape(QWidget *receiver);

    bool m_isForwarding = false;
};
