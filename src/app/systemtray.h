#pragma once

#include <QObject>
#include <QString>
#include <QSystemTrayIcon>

#include <functional>
#include <memory>

class QAction;
class QMenu;
class QTimer;

/// The icon in the desktop's tray and its menu. A desktop session may start its tray later than
/// this program, so the set-up is tried again a few times.
class SystemTray : public QObject
{
    Q_OBJECT

public:
    using AvailabilityProbe = std::function<bool()>;

    explicit SystemTray(AvailabilityProbe probe = &QSystemTrayIcon::isSystemTrayAvailable,
                        QObject *parent = nullptr);
    ~SystemTray() override;

    /// Builds and shows the icon if the desktop has a tray, else schedules another attempt: after
    /// 1500 ms, then 1500 ms more each time, and gives up with the sixth. Does nothing once the
    /// icon exists.
    void setup();
    /// Calls setup() after `delayMs`, a negative one counting as 0, in place of a retry that waits
    /// already. Does nothing once the icon exists.
    void scheduleRetry(int delayMs);

    /// True while the window can be brought back from the tray.
    bool isVisible() const;
    void hide();
    /// What the menu's status line says.
    void setSharesActive(bool active);

signals:
    void showRequested();
    /// A click on the icon: show the window, or hide it if it is there.
    void toggleRequested();
    void quitRequested();

private:
    void buildIcon();
    void buildMenu();

    AvailabilityProbe m_probe;
    QTimer *m_retryTimer;
    int m_attempts = 0;
    bool m_sharesActive = false;
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon *m_icon = nullptr;
    QAction *m_statusAction = nullptr;
};
