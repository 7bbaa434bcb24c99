#pragma once

#include "common/servicehost.h"
#include "vaultd/fileindex.h"
#include "vaultd/vaultthread.h"

namespace services {
namespace vaultd {

/// The requests about the files: listFiles, restoreFiles, deleteFiles, clearAll.
class FileRequests
{
public:
    /// The references must outlive the host's handlers.
    FileRequests(ServiceHost &host, const VaultLayout &layout, const FileIndex &index,
                 VaultThread &vault);

private:
    Reply list(const QJsonObject &params) const;
    void restore(const QJsonObject &params, const ServiceHost::Respond &respond);
    void remove(const QJsonObject &params, const ServiceHost::Respond &respond);

    VaultLayout m_layout;
    const FileIndex &m_index;
    VaultThread &m_vault;
};

} // namespace vaultd
} // namespace services
