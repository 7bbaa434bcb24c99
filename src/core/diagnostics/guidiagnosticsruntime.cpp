#include "core/diagnostics/guidiagnosticsruntime.h"

#include "core/jsontext.h"
#include "core/privatefile.h"

#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QGuiApplication>
#include <QJsonObject>
#include <QSaveFile>
#include <QThread>
#include <QTimer>

namespace core {
namespace diagnostics {

namespace {

constexpr int kHeartbeatIntervalMs = 1000;
constexpr qint64 kSlowOperationErrorMs = 1000; // Above this a slow operation is an error.

QString utcText(const QDateTime &time)
{
    return time.toUTC().toString(Qt::ISODate);
}

/// False if it is not there. Who used the program, and how, is nobody else's business.
bool makeRuntimeDir()
{
    return core::makePrivateDirectory(GuiDiagnosticsRuntime::runtimeDirPath());
}

/// Replaces the file in one step, so a reader never sees half of it. Nobody is told of a failure:
/// the traces must never get in the way of the program.
bool saveText(const QString &path, const QByteArray &text)
{
    QSaveFile file(path);
    return makeRuntimeDir() && file.open(QIODevice::WriteOnly) &&
           file.setPermissions(QFile::ReadOwner | QFile::WriteOwner) &&
           file.write(text) == text.size() && file.flush() && file.commit();
}

/// The action word for an event, empty for events that leave no trace.
QString actionWord(QEvent::Type type)
{
    switch (type) {
    case QEvent::MouseButtonPress:
        return QStringLiteral("mouse_press");
    case QEvent::MouseButtonRelease:
        return QStringLiteral("mouse_release");
    case QEvent::MouseButtonDblClick:
        return QStringLiteral("mouse_double_click");
    case QEvent::KeyPress:
        return QStringLiteral("key_press");
    case QEvent::WindowActivate:
        return QStringLiteral("window_activate");
    case QEvent::Wheel:
        return QStringLiteral("wheel");
    case QEvent::TouchBegin:
        return QStringLiteral("touch_begin");
    case QEvent::TouchEnd:
        return QStringLiteral("touch_end");
    default:
        return QString();
    }
}

} // namespace

GuiDiagnosticsRuntime::GuiDiagnosticsRuntime(QObject *parent)
    : QObject(parent)
    , m_timer(new QTimer(this))
{
    m_timer->setInterval(kHeartbeatIntervalMs);
    connect(m_timer, &QTimer::timeout, this, &GuiDiagnosticsRuntime::writeHeartbeat);
}

QString GuiDiagnosticsRuntime::runtimeDirPath()
{
    return QDir::homePath() + QStringLiteral("/.config/morvane/runtime");
}

QString GuiDiagnosticsRuntime::heartbeatFilePath()
{
    return runtimeDirPath() + QStringLiteral("/gui_heartbeat.json");
}

QString GuiDiagnosticsRuntime::environmentSnapshotPath()
{
    return runtimeDirPath() + QStringLiteral("/last_env_snapshot.json");
}

QString GuiDiagnosticsRuntime::slowOpsLogPath()
{
    return runtimeDirPath() + QStringLiteral("/slow_ops.log");
}

QString GuiDiagnosticsRuntime::diagnosticsRootPath()
{
    return QStringLiteral("/tmp/morvane_hang");
}

void GuiDiagnosticsRuntime::start()
{
    (void)makeRuntimeDir(); // Each write tries again.
    QCoreApplication::instance()->installEventFilter(this);
    writeHeartbeat();
    m_timer->start();
}

void GuiDiagnosticsRuntime::setCurrentPage(const QString &page)
{
    const QString trimmed = page.trimmed();
    if (trimmed == m_currentPage)
        return;
    m_currentPage = trimmed;
    writeHeartbeat();
}

void GuiDiagnosticsRuntime::noteAction(const QString &action)
{
    const QString trimmed = action.trimmed();
    if (trimmed.isEmpty())
        return;
    m_lastAction = trimmed;
    m_lastActionAt = QDateTime::currentDateTimeUtc();
    writeHeartbeat();
}

QStringList GuiDiagnosticsRuntime::environmentVariableNames()
{
    return {QStringLiteral("DISPLAY"),
            QStringLiteral("WAYLAND_DISPLAY"),
            QStringLiteral("XAUTHORITY"),
            QStringLiteral("XDG_RUNTIME_DIR"),
            QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
            QStringLiteral("QT_QPA_PLATFORM"),
            QStringLiteral("QT_QPA_PLATFORMTHEME"),
            QStringLiteral("QT_STYLE_OVERRIDE"),
            QStringLiteral("XDG_CURRENT_DESKTOP"),
            QStringLiteral("DESKTOP_SESSION"),
            QStringLiteral("GTK_THEME"),
            QStringLiteral("LANG"),
            QStringLiteral("LC_ALL")};
}

void GuiDiagnosticsRuntime::writeEnvironmentSnapshot(const QString &mode, const QString &platform,
                                                     qint64 pid, const QString &appVersion)
{
    QJsonObject snapshot{
        {QStringLiteral("capturedAt"), utcText(QDateTime::currentDateTimeUtc())},
        {QStringLiteral("mode"), mode},
        {QStringLiteral("platform"), platform},
        {QStringLiteral("pid"), QString::number(pid)},
        {QStringLiteral("appVersion"), appVersion},
    };
    const QStringList names = environmentVariableNames();
    for (const QString &name : names)
        snapshot.insert(name, QString::fromLocal8Bit(qgetenv(name.toLatin1().constData())));
    saveText(environmentSnapshotPath(), core::compactJson(snapshot));
}

void GuiDiagnosticsRuntime::appendSlowOperation(const QString &name, qint64 elapsedMs)
{
    QFile log(slowOpsLogPath());
    if (!makeRuntimeDir())
        return;
    core::makePrivateFile(log.fileName());
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        return;
    const QString level =
        elapsedMs > kSlowOperationErrorMs ? QStringLiteral("ERROR") : QStringLiteral("WARN");
    const QString time =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
    // One write for the line, so that lines of several threads do not mix.
    log.write(QStringLiteral("[%1] [%2] SlowOp name=%3 elapsedMs=%4\n")
                  .arg(time, level, name, QString::number(elapsedMs))
                  .toUtf8());
}

bool GuiDiagnosticsRuntime::eventFilter(QObject *watched, QEvent *event)
{
    noteAction(actionWord(event->type()));
    return QObject::eventFilter(watched, event);
}

void GuiDiagnosticsRuntime::writeHeartbeat()
{
    const auto thread = reinterpret_cast<quintptr>(QThread::currentThreadId());
    const QByteArray text = core::compactJson(
        {{QStringLiteral("pid"), QString::number(QCoreApplication::applicationPid())},
         {QStringLiteral("updatedAt"), utcText(QDateTime::currentDateTimeUtc())},
         {QStringLiteral("page"), m_currentPage},
         {QStringLiteral("action"), m_lastAction},
         {QStringLiteral("actionAt"), utcText(m_lastActionAt)},
         {QStringLiteral("platform"), QGuiApplication::platformName()},
         {QStringLiteral("appVersion"), QCoreApplication::applicationVersion()},
         {QStringLiteral("threadId"), QString::number(thread)}});
    // One activation reaches every widget of a window, and each write waits for the disk. The
    // times have whole seconds, so within one of them most writes would repeat the file.
    if (text != m_lastWritten && saveText(heartbeatFilePath(), text))
        m_lastWritten = text;
}

} // namespace diagnostics
} // namespace core
