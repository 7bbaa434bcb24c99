#pragma once

#include "vaultd/vaultstore.h"

#include <QJsonArray>

namespace services {
namespace vaultd {

/// The list of files as requests see it, newest first.
class FileIndex
{
public:
    void apply(const VaultChanges &changes);

    int count() const { return m_files.size(); }
    qint64 usedBytes() const { return m_usedBytes; }

    struct Page
    {
        QJsonArray files;
        int totalCount = 0; ///< Of the matches, on all pages.
    };
    /// Files whose name or path contains the filter in any case; an empty one matches all.
    Page page(int limit, int offset, const QString &filter) const;

private:
    void remove(const QStringList &ids);

    QVector<VaultFile> m_files;
    qint64 m_usedBytes = 0;
};

} // namespace vaultd
} // namespace services
