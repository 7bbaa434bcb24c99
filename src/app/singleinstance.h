#pragma once

#include "core/appmode.h"

#include <QDir>
#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>

class QLocalSocket;

/// Names of the lock file and the local server. They differ by run mode only, so a normal and a
/// recovery instance run side by side.
QString buildLockFilePath(core::AppMode mode, const QString &applicationName,
                          const QString &temporaryDirectory = QDir::tempPath());
QString buildServerName(core::AppMode mode, const QString &applicationName);

/// Keeps the program to one instance: a lock file decides who is first, and a local server lets
/// every later start ask the first one to show its window.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    SingleInstance(const QString &lockFilePath, const QString &serverName,
                   QObject *parent = nullptr);

    /// Takes the lock without waiting. The lock of a process that has died counts as free. It is
    /// released when this object goes.
    [[nodiscard]] bool tryLock();
    /// Asks the instance that holds the lock to show its window. Blocks for up to a second each
    /// for the connection and the write; whether it went through makes no difference to the caller.
    void notifyRunningInstance() const;
    /// Starts to listen, taking over a leftover socket file. Without success the instance runs on
    /// without this service.
    void listen();

    /// For tests: how long a connection may say nothing before it counts, in milliseconds.
    void setSilentWait(int ms) { m_silentWaitMs = ms; }

signals:
    /// Another start asks for the window. Any connection does, whatever it sends: at its first
    /// bytes or its end, and after 500 ms at the latest.
    void showRequested();

private:
    void acceptConnection();

    QString m_serverName;
    QLockFile m_lock;
    QLocalServer m_server;
    int m_silentWaitMs = 500;
};
