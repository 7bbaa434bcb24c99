#include "ui/pages/scanresultspage/scanprogressbar.h"

#include "ui/common/theme.h"

#include <QPainter>
#include <QPropertyAnimation>

namespace scanresults {

namespace {

constexpr int kPulseMs = 1800;
constexpr double kLightShare = 0.3; ///< Width of the light, of the filled part.
constexpr double kLightAlpha = 0.55;
constexpr int kMinFill = 8;
constexpr double kRadius = 4.0;

} // namespace

ScanProgressBar::ScanProgressBar(QWidget *parent)
    : QProgressBar(parent)
    , m_animation(new QPropertyAnimation(this, "progressPulse", this))
{
    setRange(0, 100);
    setValue(0);
    setTextVisible(false);
    m_animation->setDuration(kPulseMs);
    m_animation->setStartValue(0.0);
    m_animation->setEndValue(1.0);
    m_animation->setEasingCurve(QEasingCurve::InOutSine);
    m_animation->setLoopCount(-1);
}

void ScanProgressBar::setProgressPulse(qreal pulse)
{
    m_progressPulse = pulse;
    update();
}

void ScanProgressBar::setScanRunning(bool running)
{
    m_scanRunning = running;
    updateHeartbeatState();
}

void ScanProgressBar::setScanHeartbeatEnabled(bool enabled)
{
    m_scanHeartbeatEnabled = enabled;
    updateHeartbeatState();
}

bool ScanProgressBar::isBeating() const
{
    return m_animation->state() == QAbstractAnimation::Running;
}

void ScanProgressBar::updateHeartbeatState()
{
    const bool wanted = m_scanRunning && m_scanHeartbeatEnabled;
    if (wanted == isBeating())
        return;
    if (wanted)
        m_animation->start();
    else
        m_animation->stop();
    update();
}

void ScanProgressBar::showEvent(QShowEvent *event)
{
    QProgressBar::showEvent(event);
    setScanHeartbeatEnabled(true);
}

void ScanProgressBar::hideEvent(QHideEvent *event)
{
    QProgressBar::hideEvent(event);
    setScanHeartbeatEnabled(false);
}

void ScanProgressBar::paintEvent(QPaintEvent *event)
{
    QProgressBar::paintEvent(event);
    if (!isBeating())
        return;
    // At 0 percent a stub of the bar beats, since something is going on.
    const double filled = qMax(double(kMinFill), width() * double(value()) / maximum());
    const double light = qMax(double(kMinFill), filled * kLightShare);
    const double left = m_progressPulse * (filled + light) - light;
    QColor bright = ui::common::ThemeColors::current().textOnAccent;
    bright.setAlphaF(kLightAlpha);
    QColor none = bright;
    none.setAlphaF(0.0);
    QLinearGradient gradient(left, 0, left + light, 0);
    gradient.setColorAt(0.0, none);
    gradient.setColorAt(0.5, bright);
    gradient.setColorAt(1.0, none);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(gradient);
    painter.drawRoundedRect(QRectF(0, 0, filled, height()), kRadius, kRadius);
}

} // namespace scanresults
