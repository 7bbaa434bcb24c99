#pragma once

#include <QMutex>
#include <QString>
#include <QtGlobal>

class QFile;
class QObject;

/// The log file; null until openAppLog() and after closeAppLog(). Guarded by g_logMutex.
extern QFile *g_logFile;
/// Guards g_logFile and the writes to it. The only lock that all threads share.
extern QMutex g_logMutex;

/// The settings file. The log and all other state lie beside it.
QString morvaneConfigPath();
/// The log file beside the settings file.
QString appLogFilePath();

/// The process's message handler: one line "[time] [LEVEL] message" to standard error and, if it
/// is open, to the log file. Any thread. Does not abort on a fatal message by itself.
void appMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);

/// Opens the log for appending, with all directories above it, readable by its owner only, and
/// installs appMessageHandler(). `owner` becomes the file's parent. If the file does not open, no
/// handler is installed and the toolkit's own output stays; the result says which.
bool openAppLog(QObject *owner);
/// Takes the handler out again and lets go of the file, so that a message from a thread that
/// outlives the owner finds no dangling pointer. Safe to call without an open log.
void closeAppLog();

/// Logs each environment variable that matters for a desktop problem as "<prefix> NAME=value".
void logDesktopEnvironmentSnapshot(const QString &prefix);
