#pragma once

#include <QPointer>
#include <QSharedPointer>
#include <QString>
#include <QTcpServer>

class FileShareController;
class FileShareDb;
class QTimer;
struct FileShareServerContext;

/// Serves the active shares over HTTP/1.1: one port, one worker of the global pool a connection,
/// one request a connection. The object lives on the GUI thread; workers share the context alone,
/// which outlives the server for as long as one runs.
class FileShareServer : public QTcpServer
{
    Q_OBJECT

public:
    FileShareServer(FileShareDb *db, FileShareController *controller, QObject *parent = nullptr);
    ~FileShareServer() override;

    /// All interfaces, IPv4 and IPv6. While listening: whether `port` is the one in use.
    [[nodiscard]] bool startListening(int port);
    bool isShuttingDown() const;
    /// Workers running now.
    int activeConnectionCount() const;

    void addActiveSession(const QString &sessionId);
    /// Requests in progress keep their counter.
    void removeActiveSession(const QString &sessionId);
    /// Drops the counters of sessions that are neither served nor in use.
    void purgeInactiveSessionCounters();
    /// Whoever has logged in to this session has to do so again.
    void invalidateSessionAuth(const QString &sessionId);

    /// Closes the listener at once and emits shutdownComplete() when the workers have ended, or
    /// after `timeoutMs`. Does nothing while a shutdown is under way.
    void shutdownAsync(int timeoutMs);
    /// As shutdownAsync(), but blocks and emits nothing.
    void shutdownSync(int timeoutMs);

    /// For the time limits, which have to be set before a connection arrives.
    QSharedPointer<FileShareServerContext> context() const { return m_context; }

signals:
    void shutdownComplete();

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    QSharedPointer<FileShareServerContext> m_context;
    QPointer<QTimer> m_shutdownTimer; ///< Set while a shutdown waits for its workers.
};
