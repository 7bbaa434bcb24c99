#include "ui/common/longwork.h"

#include <QCoreApplication>
#include <QPointer>
#include <QVector>

#include <algorithm>

namespace ui::common {

namespace {

constexpr qint64 kMinElapsedMs = 3000; ///< Sooner, the rate says nothing yet.
constexpr double kMinFraction = 0.02;
constexpr qint64 kMinuteMs = 60 * 1000;
constexpr qint64 kHourMs = 60 * kMinuteMs;

QVector<LongWork *> &runningWork()
{
    static QVector<LongWork *> running;
    return running;
}

QString text(const char *source)
{
    return QCoreApplication::translate("LongWork", source);
}

} // namespace

QString timeLeftText(double fraction, qint64 elapsedMs)
{
    if (elapsedMs < kMinElapsedMs || fraction < kMinFraction || fraction >= 1.0)
        return QString();
    const double leftMs = double(elapsedMs) * (1.0 - fraction) / fraction;
    if (leftMs >= 2.0 * kHourMs)
        return text("剩余约 %1 小时").arg(qRound(leftMs / kHourMs));
    if (leftMs >= kMinuteMs)
        return text("剩余约 %1 分钟").arg(qRound(leftMs / kMinuteMs));
    return text("剩余不到 1 分钟");
}

LongWorkBoard *LongWorkBoard::instance()
{
    static QPointer<LongWorkBoard> board;
    if (!board)
        board = new LongWorkBoard(QCoreApplication::instance());
    return board;
}

void LongWorkBoard::update()
{
    const QVector<LongWork *> &running = runningWork();
    // The one that is furthest behind: the bar is full when all is done.
    double least = running.isEmpty() ? -1.0 : 1.0;
    for (const LongWork *work : running)
        least = std::min(least, work->m_fraction);
    emit fractionChanged(least);
}

LongWork::LongWork(const QString &name, QObject *parent)
    : QObject(parent)
    , m_name(name)
{}

LongWork::~LongWork()
{
    finish();
}

void LongWork::start()
{
    if (!m_isRunning)
        runningWork().append(this);
    m_isRunning = true;
    m_fraction = 0.0;
    m_clock.start();
    LongWorkBoard::instance()->update();
}

void LongWork::setFraction(double fraction)
{
    if (!m_isRunning || fraction <= m_fraction)
        return;
    m_fraction = std::min(fraction, 1.0);
    LongWorkBoard::instance()->update();
}

void LongWork::finish(const QString &summary)
{
    if (!m_isRunning)
        return;
    m_isRunning = false;
    runningWork().removeOne(this);
    LongWorkBoard::instance()->update();
    if (!summary.isEmpty())
        emit LongWorkBoard::instance()->finished(m_name, summary);
}

QString LongWork::timeLeft() const
{
    return m_isRunning ? timeLeftText(m_fraction, m_clock.elapsed()) : QString();
}

} // namespace ui::common
