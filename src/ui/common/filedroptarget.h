#pragma once

#include <QObject>
#include <QStringList>

class QDropEvent;
class QWidget;

namespace fileshare {

/// Lets a widget, with all that stands on it, take files and folders that are dropped there. Only
/// local ones; what they are dragged from keeps them.
class FileDropTarget : public QObject
{
    Q_OBJECT

public:
    /// Becomes a child of `target`.
    explicit FileDropTarget(QWidget *target);

    /// Refuses drops while it is not active.
    void setActive(bool active);

signals:
    /// Whether something that would be taken is over the widget.
    void hovered(bool isOver);
    void dropped(const QStringList &paths);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool takesDrag(QDropEvent *event) const;

    bool m_active = true;
};

} // namespace fileshare
