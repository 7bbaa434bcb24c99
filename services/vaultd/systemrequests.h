#pragma once

#include "common/servicehost.h"

namespace services {
namespace vaultd {

/// Requests to change the system: installPackage and syncShareFirewall. This service takes them,
/// checks them and keeps a record of the last of each in its state folder; it installs nothing and
/// opens no port.
class SystemRequests
{
public:
    SystemRequests(ServiceHost &host, const QString &stateDir);

private:
    Reply installPackage(const QJsonObject &params) const;
    Reply syncShareFirewall(const QJsonObject &params) const;

    QString m_stateDir;
};

} // namespace vaultd
} // namespace services
