#pragma once

#include "common/servicehost.h"
#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/forensics/snapshotstore.h"
#include "recoveryd/jobthread.h"

namespace services {
namespace recoveryd {

/// The methods debug.*: block snapshots of files. All work runs on one thread of its own, in the
/// order of the requests, and only that thread touches the store.
class ForensicsService
{
public:
    /// The references must outlive the service. Snapshots are kept in `stateDir`.
    ForensicsService(ServiceHost &host, const DeviceCatalog &catalog, const QString &stateDir);

private:
    using Job = Reply (ForensicsService::*)(const QJsonObject &params) const;

    void handle(const QString &method, Job job);
    Reply registerFile(const QJsonObject &params) const;
    Reply verify(const QJsonObject &params) const;
    Reply getSnapshot(const QJsonObject &params) const;
    Reply listSnapshots(const QJsonObject &params) const;
    Reply deleteSnapshot(const QJsonObject &params) const;
    Reply getVerification(const QJsonObject &params) const;
    Reply recoverFile(const QJsonObject &params) const;
    /// Loads the snapshot that the params name, and its volume if it is asked for.
    [[nodiscard]] bool load(const QJsonObject &params, Snapshot *snapshot, Volume *volume,
                            Reply *refusal) const;

    ServiceHost &m_host;
    const DeviceCatalog &m_catalog;
    SnapshotStore m_store;
    JobThread m_jobs; // last, so that it ends before what its jobs use
};

} // namespace recoveryd
} // namespace services
