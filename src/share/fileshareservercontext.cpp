#include "share/fileshareservercontext.h"

#include "share/filesharecontroller.h"

#include <QMutexLocker>

#include <sys/eventfd.h>
#include <unistd.h>

FileShareServerContext::FileShareServerContext()
    : shutdownEvent(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{}

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

/// The mutex keeps the controller alive while the call is queued. Once queued, it belongs to the
/// controller's own event queue, which is emptied when the controller goes: it runs in the
/// controller's thread on a living object, or not at all.
template <typename Call>
void postToController(const ShareContextPtr &context, Call call)
{
    QMutexLocker lock(&context->controllerMutex);
    FileShareController *controller = context->controller;
    if (!controller)
        return;
    QMetaObject::invokeMethod(
        controller, [controller, call] { call(controller); }, Qt::QueuedConnection);
}

} // namespace

void postAccessLogged(const ShareContextPtr &context, const QString &sessionId,
                      const QString &clientIp, const QString &action, const QString &detail)
{
    postToController(context, [=](FileShareController *controller) {
        controller->onAccessLoggedFromWorker(sessionId, clientIp, action, detail);
    });
}

void postSessionExpired(const ShareContextPtr &context, const QString &sessionId)
{
    postToController(context, [=](FileShareController *controller) {
        controller->onSessionExpiredFromWorker(sessionId);
    });
}

} // namespace share
