#pragma once

#include <QWidget>

class QLabel;

/// Lies over the list of protected files until its user has shown who they are.
class LockOverlay : public QWidget
{
    Q_OBJECT

public:
    /// Covers `frame`, its parent, whatever size that takes.
    explicit LockOverlay(QWidget *frame);

    /// Shown and on top, or hidden.
    void setLocked(bool locked);
    /// One line under the button; an empty one hides it.
    void setMessage(const QString &message);

    bool eventFilter(QObject *watched, QEvent *event) override;

signals:
    void unlockRequested();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void buildContent();
    void cover();

    QLabel *m_message = nullptr;
};
