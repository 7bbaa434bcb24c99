#include "recoveryd/devices/deviceservice.h"

#include "common/params.h"

namespace services {
namespace recoveryd {

DeviceService::DeviceService(ServiceHost &host, const DeviceCatalog &catalog, const DeviceUse &use)
    : m_catalog(catalog)
    , m_use(use)
    , m_jobs(QStringLiteral("disks"))
{
    host.handle(QStringLiteral("disk.enumerate"),
                [this](const QJsonObject &, const ServiceHost::Respond &respond) {
                    m_jobs.run(
                        [this] {
                            return Reply::ok({{QStringLiteral("groups"), m_catalog.groups()}});
                        },
                        respond);
                });
    host.handle(QStringLiteral("disk.prepareForScan"),
                [this](const QJsonObject &params, const ServiceHost::Respond &respond) {
                    const QString path = textParam(params, QStringLiteral("devicePath"));
                    if (path.isEmpty())
                        return respond(badParam(QStringLiteral("devicePath")));
                    m_jobs.run([this, path] { return prepare(path); }, respond);
                });
}

Reply DeviceService::prepare(const QString &devicePath) const
{
    Device device;
    QString action;
    QString error;
    if (!m_catalog.find(devicePath, &device, &error))
        return Reply::failure(kNotFoundCode, error);
    if (!m_use.prepare(device, &action, &error))
        return Reply::failure(kBusyCode, error);
    return Reply::ok({{QStringLiteral("action"), action}});
}

} // namespace recoveryd
} // namespace services
