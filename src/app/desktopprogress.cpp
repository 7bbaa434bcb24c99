#include "app/desktopprogress.h"

#include "ui/common/longwork.h"

#include <QApplication>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>

#include <cmath>

namespace {

constexpr int paceMs = 500;
constexpr double leastStep = 0.01;
const char launcherPath[] = "/org/example/morvane/launcherentry";
const char desktopUri[] = "application://org.example.morvane.desktop";

// As a string of the text format of variants that gdbus reads.
QString variantString(const QString &text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    escaped.replace(QLatin1Char('\''), QLatin1String("\\'"));
    escaped.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return QLatin1Char('\'') + escaped + QLatin1Char('\'');
}

} // namespace

DesktopProgress::DesktopProgress(QObject *parent)
    : QObject(parent)
    , m_isInFront([] { return QApplication::activeWindow() != nullptr; })
    , m_pace(new QTimer(this))
{
    m_pace->setSingleShot(true);
    m_pace->setInterval(paceMs);
    connect(m_pace, &QTimer::timeout, this, &DesktopProgress::sendFraction);
    const auto *board = ui::common::LongWorkBoard::instance();
    connect(board, &ui::common::LongWorkBoard::fractionChanged, this,
            &DesktopProgress::showFraction);
    connect(board, &ui::common::LongWorkBoard::finished, this, &DesktopProgress::notify);
}

void DesktopProgress::setAttentionProbe(const std::function<bool()> &isInFront)
{
    m_isInFront = isInFront;
}

void DesktopProgress::showFraction(double fraction)
{
    m_fraction = fraction;
    const bool beginsOrEnds = (fraction < 0.0) != (m_sent < 0.0);
    if (beginsOrEnds)
        sendFraction();
    else if (!m_pace->isActive() && std::fabs(fraction - m_sent) >= leastStep)
        m_pace->start();
}

void DesktopProgress::sendFraction()
{
    m_pace->stop();
    m_sent = m_fraction;
    const QString properties =
        QStringLiteral("{'progress': <%1>, 'progress-visible': <%2>}")
            .arg(qMax(0.0, m_fraction), 0, 'f', 4)
            .arg(m_fraction >= 0.0 ? QStringLiteral("true") : QStringLiteral("false"));
    run({QStringLiteral("emit"), QStringLiteral("--session"), QStringLiteral("--object-path"),
         QLatin1String(launcherPath), QStringLiteral("--signal"),
         QStringLiteral("com.canonical.Unity.LauncherEntry.Update"), QLatin1String(desktopUri),
         properties});
}

void DesktopProgress::notify(const QString &name, const QString &summary)
{
    if (m_isInFront())
        return;
    run({QStringLiteral("call"), QStringLiteral("--session"), QStringLiteral("--dest"),
         QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("--object-path"),
         QStringLiteral("/org/freedesktop/Notifications"), QStringLiteral("--method"),
         QStringLiteral("org.freedesktop.Notifications.Notify"),
         variantString(QStringLiteral("墨川归档")), QStringLiteral("uint32 0"),
         variantString(QStringLiteral("morvane")), variantString(name), variantString(summary),
         QStringLiteral("@as []"), QStringLiteral("@a{sv} {}"), QStringLiteral("int32 -1")});
}

void DesktopProgress::run(const QStringList &arguments)
{
    const QString program = QStandardPaths::findExecutable(QStringLiteral("gdbus"));
    if (program.isEmpty() || qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        return;
    auto *process = new QProcess(this);
    process->setStandardOutputFile(QProcess::nullDevice());
    process->setStandardErrorFile(QProcess::nullDevice());
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), process,
            &QObject::deleteLater);
    connect(process, &QProcess::errorOccurred, process, &QObject::deleteLater);
    process->start(program, arguments);
}
