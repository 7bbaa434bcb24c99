#pragma once

#include <QPointer>
#include <QWidget>

namespace ui::common {

/// Dims the window below a modal dialog, and draws the dialog's shadow on it: a window without a
/// system frame has none where the desktop composes nothing. Lies over all of the window while the
/// dialog shows, and goes with it.
class DialogScrim : public QWidget
{
    Q_OBJECT

public:
    /// Watches the dialog, which owns what happens here: nothing is to be called. A dialog without
    /// a visible window below it gets no scrim.
    static void follow(QWidget *dialog);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    DialogScrim(QWidget *window, QWidget *dialog);
    void cover();

    QPointer<QWidget> m_dialog;
};

} // namespace ui::common
