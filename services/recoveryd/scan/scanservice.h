#pragma once

#include "common/servicehost.h"
#include "core/workerthread.h"
#include "recoveryd/scan/scantask.h"
#include "recoveryd/session/sessionstore.h"

namespace services {
namespace recoveryd {

/// The methods scan.* and their events: one worker thread a running scan.
class ScanService : private ScanListener
{
public:
    static constexpr int kMaxRunning = 4;

    /// All three must outlive the service.
    ScanService(ServiceHost &host, const DeviceCatalog &catalog, SessionStore &store);
    /// Stops what runs and waits for it.
    ~ScanService() override;

    bool isRunning(const QString &sessionId) const { return m_running.count(sessionId) > 0; }
    /// What the session has found, so far if it is running.
    [[nodiscard]] bool filesOf(const QString &sessionId, QVector<FoundFile> *files,
                               QString *error) const;

private:
    struct Running
    {
        std::shared_ptr<WorkControl> control;
        QVector<FoundFile> files;
        core::WorkerThread thread;
    };

    Reply start(const QJsonObject &params);
    /// Answers with what the named session's control was told, or with the reason against it.
    Reply withRunning(const QJsonObject &params, const std::function<void(WorkControl &)> &tell);
    void onProgress(const QString &sessionId, double percent, int filesFound, qint64 elapsedMs,
                    const QString &phaseText) override;
    void onFilesFound(const QString &sessionId, const QVector<FoundFile> &files) override;
    void onPaused(const QString &sessionId) override;
    void onFinished(const QString &sessionId, const ScanOutcome &outcome) override;

    ServiceHost &m_host;
    const DeviceCatalog &m_catalog;
    SessionStore &m_store;
    Mailbox m_inbox; // before the threads, which post to it until they end
    std::map<QString, std::unique_ptr<Running>> m_running;
};

} // namespace recoveryd
} // namespace services
