#pragma once

#include "vaultd/index/vaultindex.h"
#include "vaultd/vaultchanges.h"

#include <QJsonArray>

#include <memory>

namespace services {
namespace vaultd {

/// The list of files as requests see it, newest first: read from the index that the vault's thread
/// writes. One thread, which need not be that one.
class FileIndex
{
public:
    /// To be called once the vault's thread has opened the index.
    [[nodiscard]] bool open(const QString &stateDir);
    /// To be called after each change: the totals are read anew.
    void apply(const VaultChanges &changes);

    int count() const { return m_count; }
    qint64 usedBytes() const { return m_usedBytes; }

    struct Page
    {
        QJsonArray files;
        int totalCount = 0; ///< Of the matches, on all pages.
    };
    /// Files whose name or path contains the filter in any case; an empty one matches all.
    Page page(int limit, int offset, const QString &filter) const;

private:
    std::unique_ptr<VaultIndex> m_index;
    int m_count = 0;
    qint64 m_usedBytes = 0;
};

} // namespace vaultd
} // namespace services
