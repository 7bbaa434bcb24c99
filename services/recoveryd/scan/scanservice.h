#pragma once

#include "common/servicehost.h"
#include "core/workerthread.h"
#include "recoveryd/devices/deviceuse.h"
#include "recoveryd/jobthread.h"
#include "recoveryd/scan/scantask.h"
#include "recoveryd/session/sessionstore.h"

namespace services {
namespace recoveryd {

/// The methods scan.* and their events: one worker thread a running scan.
class ScanService : private ScanListener
{
public:
    static constexpr int kMaxRunning = 4;

    /// All must outlive the service.
    ScanService(ServiceHost &host, const DeviceCatalog &catalog, const DeviceUse &use,
                SessionStore &store);
    /// Stops what runs and waits for it.
    ~ScanService() override;

    bool isRunning(const QString &sessionId) const { return m_running.count(sessionId) > 0; }
    /// Whether it was told to wait, and not told to go on or end since.
    bool isPaused(const QString &sessionId) const;

private:
    struct Running
    {
        std::shared_ptr<WorkControl> control;
        core::WorkerThread thread;
    };

    /// A scan that is about to begin: what has been found out, or why it must not.
    struct Prepared
    {
        Session session;
        ScanTask::Order order;
        QJsonObject params;
        bool isResumed = false;
    };

    void start(const QJsonObject &params, const ServiceHost::Respond &respond);
    /// Finds and claims the device, which may take a while: any thread.
    Reply prepare(Prepared *prepared) const;
    Reply prepareNew(Prepared *prepared) const;
    Reply prepareResumed(Prepared *prepared) const;
    Reply launch(const Prepared &prepared);
    /// Answers with what the named session's control was told, or with the reason against it.
    Reply withRunning(const QJsonObject &params, const std::function<void(WorkControl &)> &tell);
    void onProgress(const QString &sessionId, double percent, int filesFound, qint64 elapsedMs,
                    const QString &phaseText) override;
    void onFilesFound(const QString &sessionId, const QJsonArray &files) override;
    void onPaused(const QString &sessionId) override;
    void onFinished(const QString &sessionId, const ScanOutcome &outcome) override;

    ServiceHost &m_host;
    const DeviceCatalog &m_catalog;
    const DeviceUse &m_use;
    SessionStore &m_store;
    Mailbox m_inbox; // before the threads, which post to it until they end
    std::map<QString, std::unique_ptr<Running>> m_running;
    JobThread m_jobs;
};

} // namespace recoveryd
} // namespace services
