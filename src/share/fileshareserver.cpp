#include "share/fileshareserver.h"

#include "share/connection.h"
#include "share/filesharecontroller.h"
#include "share/filesharedb.h"
#include "share/fileshareservercontext.h"

#include <QElapsedTimer>
#include <QMutexLocker>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QtConcurrent>

namespace {

constexpr int kDestructorTimeoutMs = 3000;
constexpr int kShutdownPollMs = 100;
constexpr int kShutdownSleepMs = 50;

void forgetController(const ShareContextPtr &context)
{
    QMutexLocker lock(&context->controllerMutex);
    context->controller = nullptr;
}

/// Counted here before it is no longer counted there, so that no moment finds it in neither.
void countAsRunning(FileShareServerContext *context)
{
    context->activeConnections.ref();
    context->pendingConnections.deref();
}

void runConnection(const ShareContextPtr &context, qintptr descriptor)
{
    countAsRunning(context.data());
    share::handleConnectionStatic(context, descriptor);
    context->activeConnections.deref();
}

void queueConnection(const ShareContextPtr &context, qintptr descriptor)
{
    QtConcurrent::run(QThreadPool::globalInstance(), runConnection, context, descriptor);
}

} // namespace

FileShareServer::FileShareServer(FileShareDb *db, FileShareController *controller, QObject *parent)
    : QTcpServer(parent)
    , m_context(ShareContextPtr::create())
{
    m_context->dbPath = db->dbPath();
    m_context->controller = controller;
    if (!controller)
        return;
    const ShareContextPtr context = m_context;
    connect(controller, &QObject::destroyed, this, [context] { forgetController(context); });
}

FileShareServer::~FileShareServer()
{
    shutdownSync(kDestructorTimeoutMs);
    forgetController(m_context);
}

bool FileShareServer::startListening(int port)
{
    if (isListening())
        return serverPort() == port;
    // A shutdown that still waits for its workers must not clear what is served from now on.
    delete m_shutdownTimer.data();
    m_context->setShuttingDown(false);
    if (!listen(QHostAddress::Any, static_cast<quint16>(port))) {
        qWarning().noquote() << "[FileShareServer] listen failed:" << errorString();
        return false;
    }
    qInfo() << "[FileShareServer] listening on port" << serverPort();
    return true;
}

bool FileShareServer::isShuttingDown() const
{
    return m_context->isShuttingDown();
}

int FileShareServer::activeConnectionCount() const
{
    return m_context->activeConnections.loadAcquire();
}

void FileShareServer::addActiveSession(const QString &sessionId)
{
    QMutexLocker sessionsLock(&m_context->activeSessionsMutex);
    m_context->activeSessions.insert(sessionId);
    QMutexLocker countersLock(&m_context->sessionCountersMutex);
    QSharedPointer<QAtomicInt> &counter = m_context->sessionCounters[sessionId];
    if (!counter)
        counter = QSharedPointer<QAtomicInt>::create(0);
}

void FileShareServer::removeActiveSession(const QString &sessionId)
{
    QMutexLocker lock(&m_context->activeSessionsMutex);
    m_context->activeSessions.remove(sessionId);
}

void FileShareServer::purgeInactiveSessionCounters()
{
    QMutexLocker sessionsLock(&m_context->activeSessionsMutex);
    QMutexLocker countersLock(&m_context->sessionCountersMutex);
    auto &counters = m_context->sessionCounters;
    for (auto it = counters.begin(); it != counters.end();) {
        const bool unused = it.value()->loadAcquire() == 0;
        if (unused && !m_context->activeSessions.contains(it.key()))
            it = counters.erase(it);
        else
            ++it;
    }
}

void FileShareServer::invalidateSessionAuth(const QString &sessionId)
{
    QMutexLocker lock(&m_context->authTokensMutex);
    m_context->authTokens.remove(sessionId);
}

void FileShareServer::shutdownAsync(int timeoutMs)
{
    if (m_context->isShuttingDown())
        return;
    m_context->setShuttingDown(true);
    close();
    if (m_context->isIdle()) {
        m_context->clearState();
        emit shutdownComplete();
        return;
    }
    m_shutdownTimer = new QTimer(this);
    QElapsedTimer clock;
    clock.start();
    connect(m_shutdownTimer.data(), &QTimer::timeout, this, [this, clock, timeoutMs] {
        if (!m_context->isIdle() && clock.elapsed() < timeoutMs)
            return;
        m_shutdownTimer->stop();
        m_shutdownTimer->deleteLater();
        m_shutdownTimer.clear();
        m_context->clearState();
        emit shutdownComplete();
    });
    m_shutdownTimer->start(kShutdownPollMs);
}

void FileShareServer::shutdownSync(int timeoutMs)
{
    m_context->setShuttingDown(true);
    close();
    QElapsedTimer clock;
    clock.start();
    while (!m_context->isIdle() && clock.elapsed() < timeoutMs)
        QThread::msleep(kShutdownSleepMs);
    m_context->clearState();
}

void FileShareServer::incomingConnection(qintptr descriptor)
{
    // Only between the setting of the flag and the closing of the listener.
    if (m_context->isShuttingDown())
        return;
    m_context->pendingConnections.ref();
    queueConnection(m_context, descriptor);
}
