#include "app/applog.h"

#include "core/diagnostics/guidiagnosticsruntime.h"
#include "core/privatefile.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>
#include <QTextStream>

#include <cstdio>

using core::diagnostics::GuiDiagnosticsRuntime;

QFile *g_logFile = nullptr;
QMutex g_logMutex;

namespace {

QString levelWord(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return QStringLiteral("DEBUG");
    case QtWarningMsg:
        return QStringLiteral("WARN");
    case QtCriticalMsg:
        return QStringLiteral("ERROR");
    case QtFatalMsg:
        return QStringLiteral("FATAL");
    default:
        return QStringLiteral("INFO");
    }
}

} // namespace

QString morvaneConfigPath()
{
    return QDir::homePath() + QStringLiteral("/.config/morvane/morvane.conf");
}

QString appLogFilePath()
{
    return QFileInfo(morvaneConfigPath()).path() + QStringLiteral("/logs/morvane_gui.log");
}

void appMessageHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    const QString time =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
    const QString line =
        QStringLiteral("[%1] [%2] %3").arg(time, levelWord(type), message) + QLatin1Char('\n');

    // One call a line, so that lines of several threads do not mix.
    std::fputs(line.toLocal8Bit().constData(), stderr);

    const QMutexLocker lock(&g_logMutex);
    if (g_logFile && g_logFile->isOpen()) {
        {
            QTextStream stream(g_logFile);
            stream.setCodec("UTF-8"); // The locale of a recovery medium is often plain C.
            stream << line;
        }
        g_logFile->flush();
    }
}

bool openAppLog(QObject *owner)
{
    const QString path = appLogFilePath();
    auto *file = new QFile(path, owner);
    // The log names files of the user and what was searched for.
    if (core::makePrivateDirectory(QFileInfo(morvaneConfigPath()).path()) &&
        core::makePrivateDirectory(QFileInfo(path).path()))
        core::makePrivateFile(path);
    const bool opened = file->open(QIODevice::Append | QIODevice::Text);
    {
        const QMutexLocker lock(&g_logMutex);
        g_logFile = file;
    }
    if (opened) {
        qInstallMessageHandler(appMessageHandler);
        qInfo() << "GUI log file:" << path;
    }
    return opened;
}

void closeAppLog()
{
    qInstallMessageHandler(nullptr);
    const QMutexLocker lock(&g_logMutex);
    g_logFile = nullptr;
}

void logDesktopEnvironmentSnapshot(const QString &prefix)
{
    const QStringList names = GuiDiagnosticsRuntime::environmentVariableNames();
    for (const QString &name : names) {
        const QByteArray raw = qgetenv(name.toLatin1().constData());
        const QString value =
            raw.isEmpty() ? QStringLiteral("<empty>") : QString::fromLocal8Bit(raw);
        qInfo().noquote() << QStringLiteral("%1 %2=%3").arg(prefix, name, value);
    }
}
