#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>

/// A server in a process of its own, ended with this object.
class ServerProcess
{
public:
    /// This program again, as one of its servers, which say their port.
    static std::unique_ptr<ServerProcess> own(const QStringList &arguments);
    /// Another program that listens on a port it is told.
    static std::unique_ptr<ServerProcess> foreign(const QString &program,
                                                  const QStringList &arguments, int port);
    ~ServerProcess();

    int port() const { return m_port; }
    /// Resident memory in KiB.
    qint64 residentKiB() const;

private:
    QProcess m_process;
    int m_port = 0;
};

/// One that nobody listens on now.
int unusedPort();

/// Seconds that a request takes from the first byte sent to the end of its answer. Ends the program
/// when there are fewer than `leastBytes`. `body` follows the header `bodyTimes` times.
double timedRequest(int port, const QByteArray &head, qint64 leastBytes,
                    const QByteArray &body = QByteArray(), int bodyTimes = 0);
/// The same by several clients at once: until the last has ended.
double timedRequests(int clients, int port, const QByteArray &head, qint64 leastBytes);
