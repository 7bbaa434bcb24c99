#include "vaultd/fileindex.h"

namespace services {
namespace vaultd {

bool FileIndex::open(const QString &stateDir)
{
    m_index = std::make_unique<VaultIndex>(stateDir);
    const bool isOpen = m_index->openForReading();
    apply(VaultChanges());
    return isOpen;
}

void FileIndex::apply(const VaultChanges &)
{
    if (!m_index)
        return;
    m_count = m_index->count();
    m_usedBytes = m_index->usedBytes();
}

FileIndex::Page FileIndex::page(int limit, int offset, const QString &filter) const
{
    Page page;
    if (!m_index)
        return page;
    const QVector<VaultFile> files = m_index->page(limit, offset, filter, &page.totalCount);
    for (const VaultFile &file : files)
        page.files.append(file.toJson());
    return page;
}

} // namespace vaultd
} // namespace services
