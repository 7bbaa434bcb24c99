#pragma once

#include "common/errorcodes.h"
#include "common/servicehost.h"
#include "vaultd/users/vaultusers.h"

namespace services::vaultd {

/// A handler that is given the vault of who asks; without one, the request is refused.
using VaultHandler = std::function<void(UserVault *vault, const Request &request,
                                        const ServiceHost::Respond &respond)>;

inline void handleForVault(ServiceHost &host, const QString &method, VaultUsers &users,
                           const VaultHandler &handler)
{
    host.handle(method,
                ServiceHost::RequestHandler(
                    [&users, handler](const Request &request, const ServiceHost::Respond &respond) {
                        QString error;
                        if (UserVault *const vault = users.of(request.peer.uid, &error))
                            handler(vault, request, respond);
                        else
                            respond(Reply::failure(kNotFoundCode, error));
                    }));
}

} // namespace services::vaultd
