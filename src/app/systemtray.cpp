#include "app/systemtray.h"

#include <QAction>
#include <QDebug>
#include <QGuiApplication>
#include <QIcon>
#include <QMenu>
#include <QTimer>

#include <utility>

namespace {

constexpr int maxAttempts = 5;
constexpr int retryStepMs = 1500;

QString environmentText(const char *name)
{
    const QByteArray value = qgetenv(name);
    return value.isEmpty() ? QStringLiteral("<empty>") : QString::fromLocal8Bit(value);
}

QString yesNo(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

SystemTray::SystemTray(AvailabilityProbe probe, QObject *parent)
    : QObject(parent)
    , m_probe(std::move(probe))
    , m_retryTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("SystemTray"));
    m_retryTimer->setObjectName(QStringLiteral("TrayRetryTimer"));
    m_retryTimer->setSingleShot(true);
    connect(m_retryTimer, &QTimer::timeout, this, &SystemTray::setup);
}

SystemTray::~SystemTray()
{
    delete m_icon; // before the menu that it refers to
}

void SystemTray::setup()
{
    if (m_icon)
        return;

    ++m_attempts;
    const bool available = m_probe();
    qInfo().noquote() << QStringLiteral("System tray init: attempt=%1 available=%2 platform=%3 "
                                        "xdg_session_type=%4 xdg_current_desktop=%5 "
                                        "desktop_session=%6")
                             .arg(QString::number(m_attempts), yesNo(available),
                                  QGuiApplication::platformName(),
                                  environmentText("XDG_SESSION_TYPE"),
                                  environmentText("XDG_CURRENT_DESKTOP"),
                                  environmentText("DESKTOP_SESSION"));
    if (available) {
        buildIcon();
        return;
    }
    if (m_attempts > maxAttempts) {
        qWarning().noquote() << QStringLiteral(
                                    "System tray unavailable after %1 attempts, giving up")
                                    .arg(m_attempts);
        return;
    }
    const int delayMs = m_attempts * retryStepMs;
    qWarning().noquote() << QStringLiteral(
                                "System tray unavailable on attempt %1, scheduling retry in %2 ms")
                                .arg(m_attempts)
                                .arg(delayMs);
    scheduleRetry(delayMs);
}

void SystemTray::scheduleRetry(int delayMs)
{
    if (m_icon)
        return;
    m_retryTimer->stop();
    m_retryTimer->start(qMax(0, delayMs));
}

bool SystemTray::isVisible() const
{
    return m_icon && m_icon->isVisible();
}

void SystemTray::hide()
{
    if (m_icon)
        m_icon->hide();
}

void SystemTray::setSharesActive(bool active)
{
    m_sharesActive = active;
    if (m_statusAction)
        m_statusAction->setText(active ? tr("正在分享文件") : tr("无文件分享"));
}

void SystemTray::buildIcon()
{
    buildMenu();
    m_icon = new QSystemTrayIcon(QIcon(QStringLiteral(":/img/logo.png")), this);
    m_icon->setToolTip(tr("墨川归档"));
    m_icon->setContextMenu(m_menu.get());
    connect(m_icon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
                    emit toggleRequested();
            });
    m_retryTimer->stop();
    m_icon->show();
    qInfo().noquote()
        << QStringLiteral("System tray shown: visible=%1").arg(yesNo(m_icon->isVisible()));
}

void SystemTray::buildMenu()
{
    m_menu = std::make_unique<QMenu>();
    m_menu->setObjectName(QStringLiteral("TrayMenu"));
    m_statusAction = m_menu->addAction(QString());
    m_statusAction->setEnabled(false);
    setSharesActive(m_sharesActive);
    m_menu->addSeparator();
    connect(m_menu->addAction(tr("显示主窗口")), &QAction::triggered, this,
            &SystemTray::showRequested);
    m_menu->addSeparator();
    connect(m_menu->addAction(tr("退出")), &QAction::triggered, this, &SystemTray::quitRequested);
}
