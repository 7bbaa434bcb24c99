#include "app/singleinstance.h"

#include <QDebug>
#include <QLocalSocket>
#include <QTimer>

namespace {

constexpr int connectTimeoutMs = 1000;
constexpr int writeTimeoutMs = 1000;

} // namespace

QString buildLockFilePath(core::AppMode mode, const QString &applicationName,
                          const QString &temporaryDirectory)
{
    return QDir(temporaryDirectory)
        .filePath(applicationName + QLatin1Char('_') + core::AppModeDetector::toString(mode) +
                  QStringLiteral(".lock"));
}

QString buildServerName(core::AppMode mode, const QString &applicationName)
{
    return applicationName + QLatin1Char('_') + core::AppModeDetector::toString(mode) +
           QStringLiteral("_ipc");
}

SingleInstance::SingleInstance(const QString &lockFilePath, const QString &serverName,
                               QObject *parent)
    : QObject(parent)
    , m_serverName(serverName)
    , m_lock(lockFilePath)
{
    // No lock goes stale by age: the first instance may well run for weeks.
    m_lock.setStaleLockTime(0);
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnection);
}

bool SingleInstance::tryLock()
{
    if (m_lock.tryLock(0))
        return true;
    if (m_lock.error() != QLockFile::LockFailedError)
        qWarning() << "[SingleInstance] the lock file could not be made, error" << m_lock.error();
    return false;
}

void SingleInstance::notifyRunningInstance() const
{
    qWarning() << "Another instance is already running, notifying it to show window";
    QLocalSocket socket;
    socket.connectToServer(m_serverName, QIODevice::ReadWrite);
    if (!socket.waitForConnected(connectTimeoutMs))
        return;
    socket.write("show");
    socket.waitForBytesWritten(writeTimeoutMs);
    socket.disconnectFromServer();
}

void SingleInstance::listen()
{
    QLocalServer::removeServer(m_serverName);
    if (!m_server.listen(m_serverName))
        qWarning() << "[SingleInstance] no show notifications:" << m_server.errorString();
}

void SingleInstance::acceptConnection()
{
    QLocalSocket *socket = m_server.nextPendingConnection();
    if (!socket)
        return;

    // The sender gets its time to write, but on the event loop: the window stays alive meanwhile.
    auto *deadline = new QTimer(socket);
    deadline->setSingleShot(true);
    deadline->setTimerType(Qt::PreciseTimer);
    const auto expire = [deadline] {
        deadline->start(0);
    };
    connect(socket, &QLocalSocket::readyRead, deadline, expire);
    connect(socket, &QLocalSocket::disconnected, deadline, expire);
    connect(deadline, &QTimer::timeout, this, [this, socket] {
        socket->deleteLater();
        emit showRequested();
    });
    deadline->start(socket->bytesAvailable() > 0 ? 0 : m_silentWaitMs);
}
