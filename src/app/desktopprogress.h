#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QStringList>

#include <functional>

class QTimer;

/// Shows long work outside the window: as a bar on the program's icon in task bars that know the
/// launcher interface, and as a notification at its end while no window of the program is in front.
/// Messages go over the session bus by way of `gdbus`; without it, or without a bus, nothing is
/// shown and nothing is said. GUI thread only.
class DesktopProgress : public QObject
{
    Q_OBJECT

public:
    explicit DesktopProgress(QObject *parent);

    /// Whether the user looks at the program; by default, whether a window of it is active.
    void setAttentionProbe(const std::function<bool()> &isInFront);

private:
    void showFraction(double fraction);
    void sendFraction();
    void notify(const QString &name, const QString &summary);
    void run(const QStringList &arguments);

    std::function<bool()> m_isInFront;
    QTimer *m_pace;
    double m_fraction = -1.0;
    double m_sent = -1.0;
};
