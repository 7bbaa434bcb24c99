#pragma once

#include "common/servicehost.h"
#include "recoveryd/devices/deviceuse.h"
#include "recoveryd/jobthread.h"

namespace services {
namespace recoveryd {

/// The methods disk.*. Disks that are dying answer slowly, so the work is done on a thread of its
/// own.
class DeviceService
{
public:
    /// The references must outlive the service.
    DeviceService(ServiceHost &host, const DeviceCatalog &catalog, const DeviceUse &use);

private:
    Reply prepare(const QString &devicePath) const;

    const DeviceCatalog &m_catalog;
    const DeviceUse &m_use;
    JobThread m_jobs;
};

} // namespace recoveryd
} // namespace services
