#pragma once

#include "recoveryd/daemon.h"
#include "support/serviceclient.h"

#include <QTemporaryDir>

namespace testsupport {

/// A client of the recovery service that also waits for events.
class RecoveryClient : public ServiceClient
{
public:
    using ServiceClient::ServiceClient;

    /// Runs the event loop until an event of one of the names has come for the session or task;
    /// an event without a name after 60 s. Events are looked at once only.
    Event waitFor(const QString &id, const QStringList &names);
    /// The found files of all scan.fileFound events of the session so far.
    QJsonArray filesFound(const QString &sessionId) const;

    /// Starts a scan; its session id, or an empty text.
    QString startScan(const QJsonObject &params);
    /// Scans to the end; the session id if it was completed.
    QString scan(const QJsonObject &params);

private:
    int m_lookedAt = 0;
};

/// The service in this process, over images of the test; a socket and a state folder of its own.
/// restart() begins again on what is kept.
class RecoveryHarness
{
public:
    /// Free space as the service sees it; unlimited by default.
    qint64 freeBytes = -1;
    /// Where an installed system may be mounted; nowhere by default. For the next start.
    QString mountedDir;

    [[nodiscard]] bool start(const QStringList &images);
    [[nodiscard]] bool restart();

    RecoveryClient &client() { return *m_client; }
    QString path(const QString &name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
    QStringList m_images;
    std::unique_ptr<services::recoveryd::Daemon> m_daemon;
    std::unique_ptr<RecoveryClient> m_client;
};

} // namespace testsupport
