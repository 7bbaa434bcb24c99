#include "share/fileshareservercontext.h"

#include "share/filesharecontroller.h"

#include <QMutexLocker>

#include <sys/eventfd.h>
#include <unistd.h>

FileShareServerContext::FileShareServerContext()
    : shutdownEvent(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    clock.start();
}

FileShareServerContext::~FileShareServerContext()
{
    if (shutdownEvent >= 0)
        ::close(shutdownEvent);
}

void FileShareServerContext::setShuttingDown(bool on)
{
    shuttingDown.storeRelease(on ? 1 : 0);
    // Nobody else reads the event, so it stays readable for all waiters until it is cleared here.
    eventfd_t value = 0;
    if (on)
        ::eventfd_write(shutdownEvent, 1);
    else
        ::eventfd_read(shutdownEvent, &value);
}

bool FileShareServerContext::isIdle() const
{
    return pendingConnections.loadAcquire() < 1 && activeConnections.loadAcquire() < 1;
}

void FileShareServerContext::clearState()
{
    {
        QMutexLocker lock(&authTokensMutex);
        authTokens.clear();
    }
    {
        QMutexLocker lock(&activeSessionsMutex);
        activeSessions.clear();
    }
    QMutexLocker lock(&sessionCountersMutex);
    sessionCounters.clear();
}

namespace share {

namespace {

struct AccessLoggedCall
{
    void operator()() const
    {
        controller->onAccessLoggedFromWorker(sessionId, clientIp, action, detail);
    }

    FileShareController *controller;
    QString sessionId;
    QString clientIp;
    QString action;
    QString detail;
};

struct SessionExpiredCall
{
    void operator()() const { controller->onSessionExpiredFromWorker(sessionId); }

    FileShareController *controller;
    QString sessionId;
};

} // namespace

// In both, the mutex keeps the controller alive while the call is queued. Once queued, the call
// belongs to the controller's own events, which go with it: so it runs in the controller's thread
// on a living object, or not at all.

void postAccessLogged(const ShareContextPtr &context, const QString &sessionId,
                      const QString &clientIp, const QString &action, const QString &detail)
{
    QMutexLocker lock(&context->controllerMutex);
    FileShareController *controller = context->controller;
    if (controller)
        QMetaObject::invokeMethod(controller,
                                  AccessLoggedCall{controller, sessionId, clientIp, action, detail},
                                  Qt::QueuedConnection);
}

void postSessionExpired(const ShareContextPtr &context, const QString &sessionId)
{
    QMutexLocker lock(&context->controllerMutex);
    FileShareController *controller = context->controller;
    if (controller)
        QMetaObject::invokeMethod(controller, SessionExpiredCall{controller, sessionId},
                                  Qt::QueuedConnection);
}

} // namespace share
