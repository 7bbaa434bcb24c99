#pragma once

#include "common/servicehost.h"
#include "core/workerthread.h"
#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/jobthread.h"
#include "recoveryd/vault/vaultrestoretask.h"

namespace services {
namespace recoveryd {

/// The methods recovery.listVaultLocations and recovery.restoreVaultFiles and the events of
/// restores. Vaults are looked for in the images and below a directory where the installed system
/// may be mounted; this service mounts nothing itself.
class VaultService : private VaultRestoreListener
{
public:
    using FreeBytes = std::function<qint64(const QString &dir)>;

    /// The references must outlive the service. `freeBytes` is a parameter for the sake of tests.
    VaultService(ServiceHost &host, const DeviceCatalog &catalog, const QString &mountedDir,
                 FreeBytes freeBytes);
    /// Stops what runs and waits for it.
    ~VaultService() override;

private:
    struct Request
    {
        QString vaultParentDir;
        QStringList fileIds; ///< Each once.
    };
    struct Running
    {
        QString taskId;
        int total = 0;
        int succeeded = 0;
        int failed = 0;
        int skipped = 0;
        qint64 writtenBytes = 0;
        core::WorkerThread thread;
    };

    FoundVaults findVaults() const;
    Reply list() const;
    void restore(const QJsonObject &params, const ServiceHost::Respond &respond);
    /// On the job thread: what is to be restored, if there is room for it.
    Reply plan(const Request &request, VaultRestorePlan *plan) const;
    void start(const VaultRestorePlan &plan);
    void onVaultFileRestored(const QString &taskId, const VaultRestoreResult &result) override;
    void onVaultRestoreFinished(const QString &taskId) override;

    ServiceHost &m_host;
    const DeviceCatalog &m_catalog;
    QString m_mountedDir;
    FreeBytes m_freeBytes;
    std::shared_ptr<WorkControl> m_control = std::make_shared<WorkControl>();
    Mailbox m_inbox; // before the threads, which post to it until they end
    bool m_isPlanning = false;
    std::unique_ptr<Running> m_running; ///< One restore at a time.
    JobThread m_jobs;
};

} // namespace recoveryd
} // namespace services
