#pragma once

#include "common/servicehost.h"
#include "vaultd/users/vaultusers.h"

namespace services {
namespace vaultd {

class Authenticator;

/// The requests about the files: listFiles, restoreFiles, deleteFiles, clearAll. What empties the
/// vault is done only for a connection that has authenticated.
class FileRequests
{
public:
    /// The references must outlive the host's handlers.
    FileRequests(ServiceHost &host, VaultUsers &users, const Authenticator &authenticator);

private:
    using Respond = ServiceHost::Respond;

    static Reply list(const UserVault &vault, const QJsonObject &params);
    static void restore(UserVault *vault, const QJsonObject &params, const Respond &respond);
    static void remove(UserVault *vault, const QJsonObject &params, const Respond &respond);
};

} // namespace vaultd
} // namespace services
