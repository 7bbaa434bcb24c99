#include "recoveryd/devices/deviceservice.h"

#include "common/params.h"

namespace services {
namespace recoveryd {

void registerDeviceMethods(ServiceHost &host, const DeviceCatalog &catalog)
{
    host.handle(QStringLiteral("disk.enumerate"), [&catalog](const QJsonObject &) {
        return Reply::ok({{QStringLiteral("groups"), catalog.groups()}});
    });
    // Images are never mounted, so there is nothing to unmount either.
    host.handle(QStringLiteral("disk.prepareForScan"), [&catalog](const QJsonObject &params) {
        const QString path = textParam(params, QStringLiteral("devicePath"));
        if (path.isEmpty())
            return badParam(QStringLiteral("devicePath"));
        Device device;
        QString error;
        if (!catalog.find(path, &device, &error))
            return Reply::failure(kNotFoundCode, error);
        return Reply::ok({{QStringLiteral("action"), QStringLiteral("ready")}});
    });
}

} // namespace recoveryd
} // namespace services
