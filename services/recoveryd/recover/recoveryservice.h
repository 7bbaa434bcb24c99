#pragma once

#include "common/servicehost.h"
#include "core/workerthread.h"
#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/recover/recoverytask.h"
#include "recoveryd/session/sessionstore.h"

namespace services {
namespace recoveryd {

/// The methods recovery.* and their events: one worker thread a running recovery.
class RecoveryService : private RecoveryListener
{
public:
    using FilesOf = std::function<bool(const QString &sessionId, QVector<FoundFile> *, QString *)>;
    using FreeBytes = std::function<qint64(const QString &dir)>;

    /// The references must outlive the service. `freeBytes` is a parameter for the sake of tests.
    RecoveryService(ServiceHost &host, const DeviceCatalog &catalog, SessionStore &store,
                    FilesOf filesOf, FreeBytes freeBytes);
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
        QVector<FileResult> results;
        core::WorkerThread thread;
    };

    void registerMethods();
    Reply start(const QJsonObject &params);
    [[nodiscard]] bool plan(const QJsonObject &params, RecoveryPlan *plan, Reply *refusal) const;
    [[nodiscard]] bool findVolume(const Session &session, Volume *volume, QString *error) const;
    Reply detail(const QString &recoveryId) const;
    void onProgress(const QString &recoveryId, double percent, int processed, int total) override;
    void onFileStatus(const QString &recoveryId, const FileResult &result) override;
    void onFinished(const QString &recoveryId, bool wasStopped, const QString &error) override;
    QJsonObject fullRecord(const Running &running) const;

    ServiceHost &m_host;
    const DeviceCatalog &m_catalog;
    SessionStore &m_store;
    FilesOf m_filesOf;
    FreeBytes m_freeBytes;
    Mailbox m_inbox; // before the threads, which post to it until they end
    std::map<QString, std::unique_ptr<Running>> m_running;
};

} // namespace recoveryd
} // namespace services
