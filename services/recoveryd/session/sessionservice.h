#pragma once

#include "common/servicehost.h"
#include "recoveryd/scan/scanservice.h"
#include "recoveryd/session/sessionstore.h"

#include <functional>

namespace services {
namespace recoveryd {

/// The methods session.*.
class SessionService
{
public:
    /// `isInUse` tells whether a recovery still reads a session's files. All references must
    /// outlive the host's handlers.
    SessionService(ServiceHost &host, const ScanService &scans, SessionStore &store,
                   std::function<bool(const QString &sessionId)> isInUse);

private:
    Reply list(const QJsonObject &params) const;
    Reply detail(const QString &sessionId) const;
    Reply files(const QString &sessionId) const;
    Reply remove(const QString &sessionId);

    const ScanService &m_scans;
    SessionStore &m_store;
    std::function<bool(const QString &)> m_isInUse;
};

} // namespace recoveryd
} // namespace services
