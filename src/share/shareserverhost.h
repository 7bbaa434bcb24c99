#pragma once

#include <QString>

class FileShareController;
class FileShareDb;
class FileShareServer;

/// Keeps the one server of all shares: there while a share is active, and gone when the last one
/// has stopped. Servers are children of the controller and report to it. GUI thread.
class ShareServerHost
{
public:
    ShareServerHost(FileShareDb *db, FileShareController *controller);

    /// The port that is listened on; 0 for none.
    int port() const;
    /// Listens on the port. Another port is left only if no share is active.
    [[nodiscard]] bool ensureRunning(int port, QString *error);
    void serve(const QString &sessionId);
    /// Also makes those who have logged in do so again.
    void stopServing(const QString &sessionId);
    void purgeCounters();
    /// Closes the port at once and gives running transfers a time to end. Does not block.
    void shutdownAsync();
    /// Blocks until the workers have ended or the time is over; what they reported is delivered.
    void shutdownSync(int timeoutMs);
    /// The same for all servers, also for those that let their last transfers end. To be called
    /// before the controller goes.
    void endAll();

private:
    void end(FileShareServer *server, int timeoutMs);

    FileShareDb *m_db;
    FileShareController *m_controller;
    FileShareServer *m_server = nullptr;
};
