#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>

namespace ui::common {

/// "剩余约 2 分钟" from the part that is done and the time it took; empty while neither is enough
/// to tell. `fraction` is 0 to 1.
QString timeLeftText(double fraction, qint64 elapsedMs);

/// What the desktop is told about long work: all that runs, as one. Lives as long as the
/// application. GUI thread only.
class LongWorkBoard : public QObject
{
    Q_OBJECT

public:
    static LongWorkBoard *instance();

signals:
    /// How much of the running work is done, 0 to 1; negative once nothing runs.
    void fractionChanged(double fraction);
    void finished(const QString &name, const QString &summary);

private:
    friend class LongWork;
    using QObject::QObject;
    void update();
};

/// One piece of long work that a page has under way: a scan, a clean, a recovery. The page says how
/// far it is; the task bar and a notification at the end follow from that.
class LongWork : public QObject
{
    Q_OBJECT

public:
    /// `name` is what a notification at the end is headed with.
    LongWork(const QString &name, QObject *parent);
    ~LongWork() override;

    void start();
    /// 0 to 1; what goes back is ignored.
    void setFraction(double fraction);
    /// Tells the end, in the words of `summary`. Without words nobody is told: the user stopped it.
    void finish(const QString &summary = QString());

    bool isRunning() const { return m_isRunning; }
    /// As timeLeftText() says it, of this work.
    QString timeLeft() const;

private:
    friend class LongWorkBoard;

    QString m_name;
    QElapsedTimer m_clock;
    double m_fraction = 0.0;
    bool m_isRunning = false;
};

} // namespace ui::common
