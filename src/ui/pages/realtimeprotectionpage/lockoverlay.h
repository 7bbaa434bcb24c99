#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

/// Lies over the list of protected files until its user has shown who they are.
class LockOverlay : public QWidget
{
    Q_OBJECT

public:
    /// Covers `frame`, its parent, whatever size that takes.
    explicit LockOverlay(QWidget *frame);

    /// Shown and on top, or hidden.
    void setLocked(bool locked);
    /// Without a service there is nobody to ask: the button is off then.
    void setServiceAvailable(bool available);
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

    QPushButton *m_unlock = nullptr;
    QLabel *m_message = nullptr;
};
