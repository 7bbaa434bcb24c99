#include "vaultd/fileindex.h"

#include <algorithm>

namespace services {
namespace vaultd {

namespace {

bool isNewer(const VaultFile &a, const VaultFile &b)
{
    return a.deletedAt != b.deletedAt ? a.deletedAt > b.deletedAt : a.id < b.id;
}

} // namespace

void FileIndex::apply(const VaultChanges &changes)
{
    remove(changes.removed);
    if (!changes.added.isEmpty()) {
        m_files += changes.added;
        std::sort(m_files.begin(), m_files.end(), isNewer);
    }
    remove(changes.expired);
    m_usedBytes = 0;
    for (const VaultFile &file : qAsConst(m_files))
        m_usedBytes += file.fileSize;
}

void FileIndex::remove(const QStringList &ids)
{
    QSet<QString> gone;
    for (const QString &id : ids)
        gone.insert(id);
    if (gone.isEmpty())
        return;
    const auto isGone = [&gone](const VaultFile &file) {
        return gone.contains(file.id);
    };
    m_files.erase(std::remove_if(m_files.begin(), m_files.end(), isGone), m_files.end());
}

FileIndex::Page FileIndex::page(int limit, int offset, const QString &filter) const
{
    Page page;
    for (const VaultFile &file : m_files) {
        if (!filter.isEmpty() && !file.fileName.contains(filter, Qt::CaseInsensitive) &&
            !file.originalPath.contains(filter, Qt::CaseInsensitive))
            continue;
        if (page.totalCount >= offset && page.files.size() < limit)
            page.files.append(file.toJson());
        ++page.totalCount;
    }
    return page;
}

} // namespace vaultd
} // namespace services
