#pragma once

#include "common/servicehost.h"
#include "recoveryd/devices/devicecatalog.h"

namespace services {
namespace recoveryd {

/// The methods disk.*. The catalog must outlive the host's handlers.
void registerDeviceMethods(ServiceHost &host, const DeviceCatalog &catalog);

} // namespace recoveryd
} // namespace services
