#pragma once

#include "common/servicehost.h"
#include "core/workerthread.h"
#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/devices/deviceuse.h"
#include "recoveryd/jobthread.h"
#include "recoveryd/recover/recoverylog.h"
#include "recoveryd/recover/recoverytask.h"
#include "recoveryd/session/sessionstore.h"

namespace services {
namespace recoveryd {

/// The methods recovery.* and their events: one worker thread a running recovery.
class RecoveryService : private RecoveryListener
{
public:
    using FreeBytes = std::function<qint64(const QString &dir)>;

    /// The references must outlive the service. `freeBytes` is a parameter for the sake of tests.
    RecoveryService(ServiceHost &host, const DeviceCatalog &catalog, const DeviceUse &use,
                    SessionStore &store, FreeBytes freeBytes);
    /// Stops what runs and waits for it.
    ~RecoveryService() override;

    /// Whether a running recovery reads the session's files.
    bool isInUse(const QString &sessionId) const;
    /// Records of recoveries that a killed service has left running are closed as failed, and their
    /// temporary files removed. To be called once, before the first request.
    void closeInterrupted();

private:
    struct Running
    {
        std::shared_ptr<WorkControl> control;
        QString sessionId;
        QJsonObject record;
        RecoveryLog log;
        core::WorkerThread thread;
    };

    /// A recovery that is about to begin.
    struct Prepared
    {
        Session session;
        QJsonArray ids;
        RecoveryPlan plan;
    };

    void registerMethods();
    void start(const QJsonObject &params, const ServiceHost::Respond &respond);
    /// Checks the parameters; false with the refusal.
    [[nodiscard]] bool parse(const QJsonObject &params, Prepared *prepared, Reply *refusal) const;
    /// Finds the device, the files and the space for them, which may take a while: any thread.
    Reply prepare(Prepared *prepared) const;
    [[nodiscard]] static bool findFiles(const QJsonArray &ids, RecoveryPlan *plan, QString *error);
    Reply launch(const Prepared &prepared);
    void detail(const QJsonObject &params, const ServiceHost::Respond &respond);
    void onProgress(const QString &recoveryId, double percent, int processed, int total) override;
    void onFileStatus(const QString &recoveryId, const FileResult &result) override;
    void onFinished(const QString &recoveryId, bool wasStopped, const QString &error) override;
    static QJsonObject fullRecord(QJsonObject record, const RecoveryLog::Counts &counts);

    ServiceHost &m_host;
    const DeviceCatalog &m_catalog;
    const DeviceUse &m_use;
    SessionStore &m_store;
    FreeBytes m_freeBytes;
    Mailbox m_inbox; // before the threads, which post to it until they end
    std::map<QString, std::unique_ptr<Running>> m_running;
    JobThread m_jobs;
};

} // namespace recoveryd
} // namespace services
