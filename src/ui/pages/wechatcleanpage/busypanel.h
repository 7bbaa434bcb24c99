#pragma once

#include <QFrame>
#include <QString>

class QLabel;
class QProgressBar;
class QPushButton;

namespace ui {
namespace common {
class ElidedLabel;
}
} // namespace ui

namespace wechatclean {

/// What runs, how far it is, and the way to stop it. Object names: WechatBusyTitle, WechatBusyText,
/// WechatBusyPercent, WechatProgressBar, WechatBusyNote, WechatStopButton.
class BusyPanel : public QFrame
{
    Q_OBJECT

public:
    explicit BusyPanel(QWidget *parent = nullptr);

    /// A new task, without a measure until setProgress(). The note is a second line; may be empty.
    void begin(const QString &title, const QString &text, bool mayStop, const QString &note);
    /// Below 0: without a measure.
    void setProgress(int percent, const QString &text);
    void showStopping();

signals:
    void stopRequested();

private:
    QLabel *m_title;
    ui::common::ElidedLabel *m_text;
    QLabel *m_percent;
    QProgressBar *m_bar;
    QLabel *m_note;
    QPushButton *m_stop;
};

} // namespace wechatclean
