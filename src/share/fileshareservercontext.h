#pragma once

#include "share/loginthrottle.h"

#include <QAtomicInt>
#include <QElapsedTimer>
#include <QHash>
#include <QMap>
#include <QMutex>
#include <QSet>
#include <QSharedPointer>
#include <QString>

class FileShareController;

/// How long a worker waits for its client, in milliseconds. Tests shorten these.
struct ShareTimeLimits
{
    int headerMs = 30000;         ///< For a whole request header, however slowly it comes.
    int formMs = 30000;           ///< For the whole body of a form.
    int responseWriteMs = 5000;   ///< Without a byte taken while a response or a header is written.
    int uploadSilenceMs = 120000; ///< Without a byte received during an upload.
    int crowdedWaitMs = 5000;     ///< For a silent client while too many others are waited for.
    int disconnectMs = 3000;      ///< For the end of a connection whose request was not read whole.
    int stoppedDisconnectMs = 300; ///< The same while the server stops.
};

/// What the workers of one server share. Held by shared pointers, so it outlives the server for as
/// long as a worker runs. Atomics and one mutex a container; no mutex is held across socket or
/// database work.
struct FileShareServerContext
{
    FileShareServerContext();
    ~FileShareServerContext();
    FileShareServerContext(const FileShareServerContext &) = delete;
    FileShareServerContext &operator=(const FileShareServerContext &) = delete;

    /// Sets or clears `shuttingDown` and wakes every worker that waits for its client.
    void setShuttingDown(bool on);
    bool isShuttingDown() const { return shuttingDown.loadAcquire() != 0; }
    bool isIdle() const;
    /// Every login and every registered session ends.
    void clearState();

    QAtomicInt shuttingDown;
    QAtomicInt pendingConnections; ///< Accepted, worker not started.
    QAtomicInt activeConnections;  ///< Workers running now.
    QString dbPath;

    QMutex controllerMutex;
    FileShareController *controller = nullptr; ///< Null once the server has gone.

    // Where two are held at once, activeSessionsMutex is taken first.
    QMutex activeSessionsMutex;
    QSet<QString> activeSessions;
    QMutex authTokensMutex;
    QMap<QString, QString> authTokens; ///< Session id to its one login token.
    QMutex sessionCountersMutex;
    QHash<QString, QSharedPointer<QAtomicInt>> sessionCounters; ///< Open requests a session.

    share::LoginThrottle loginThrottle;
    QElapsedTimer clock; ///< Runs as long as the context lives.

    ShareTimeLimits limits;
    QAtomicInt waiters;     ///< Workers that wait for a silent client without a pool slot.
    int maxWaiters = 256;   ///< Beyond this a silent client is soon turned away.
    int shutdownEvent = -1; ///< An event descriptor, readable while `shuttingDown` is set.
};

using ShareContextPtr = QSharedPointer<FileShareServerContext>;

namespace share {

/// Queues a line of the access log to the controller's thread. Any thread; comes to nothing once
/// the controller has gone.
void postAccessLogged(const ShareContextPtr &context, const QString &sessionId,
                      const QString &clientIp, const QString &action, const QString &detail);
/// The same for a session that a client found expired.
void postSessionExpired(const ShareContextPtr &context, const QString &sessionId);

} // namespace share
