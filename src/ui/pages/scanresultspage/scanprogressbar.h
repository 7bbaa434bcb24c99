#pragma once

#include <QProgressBar>

class QPropertyAnimation;

namespace scanresults {

/// Progress bar with a heartbeat: a light that runs through the filled part while the scan does, so
/// that a long step without new percents doesn't look like a dead program.
class ScanProgressBar : public QProgressBar
{
    Q_OBJECT
    Q_PROPERTY(qreal progressPulse READ progressPulse WRITE setProgressPulse)

public:
    explicit ScanProgressBar(QWidget *parent);

    qreal progressPulse() const { return m_progressPulse; }
    void setProgressPulse(qreal pulse);

    /// The heartbeat needs both.
    void setScanRunning(bool running);
    void setScanHeartbeatEnabled(bool enabled);
    bool isBeating() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void updateHeartbeatState();

    QPropertyAnimation *m_animation;
    qreal m_progressPulse = 0.0; ///< 0 to 1: where the light is.
    bool m_scanRunning = false;
    bool m_scanHeartbeatEnabled = false;
};

} // namespace scanresults
