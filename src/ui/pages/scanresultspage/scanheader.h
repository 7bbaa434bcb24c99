#pragma once

#include <QFrame>

class QHBoxLayout;
class QLabel;
class QPushButton;

namespace ui {
namespace common {
class ElidedLabel;
}
} // namespace ui

namespace scanresults {

class ScanProgressBar;

/// Card with the state of a scan and the two buttons that govern it. It only shows what it is told.
class ScanHeader : public QFrame
{
    Q_OBJECT

public:
    enum class PauseButton { Pause, Resume, Disabled };
    enum class StopButton { Stop, Rescan, Disabled };

    explicit ScanHeader(QWidget *parent);

    void setTitle(const QString &title);
    /// Shown in upper case; an empty word hides the badge.
    void setFileSystem(const QString &fileSystem);
    void setButtons(PauseButton pause, StopButton stop);
    void setScanRunning(bool running);
    void setPercent(int percent);
    void setPhase(const QString &text, bool isError = false);
    void setFound(const QString &text);
    void setElapsed(const QString &text);

signals:
    void pauseClicked();
    void stopClicked();

private:
    QHBoxLayout *makeTitleRow();
    QHBoxLayout *makeProgressRow();
    QHBoxLayout *makeFactsRow();

    ui::common::ElidedLabel *m_title = nullptr;
    QLabel *m_badge = nullptr;
    QPushButton *m_pause = nullptr;
    QPushButton *m_stop = nullptr;
    ScanProgressBar *m_bar = nullptr;
    QLabel *m_percent = nullptr;
    ui::common::ElidedLabel *m_phase = nullptr;
    QLabel *m_found = nullptr;
    QLabel *m_elapsed = nullptr;
};

} // namespace scanresults
