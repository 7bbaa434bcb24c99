#include "recoveryd/ext/undelete/history.h"

#include <algorithm>

namespace services::recoveryd::ext {

void BlockHistory::finish()
{
    std::sort(m_versions.begin(), m_versions.end(), [](const Version &a, const Version &b) {
        return a.block != b.block ? a.block < b.block : a.order < b.order;
    });
    std::sort(m_revokes.begin(), m_revokes.end());
}

std::pair<BlockHistory::Iterator, BlockHistory::Iterator>
BlockHistory::versionsOf(qint64 block) const
{
    const auto first =
        std::partition_point(m_versions.begin(), m_versions.end(),
                             [block](const Version &version) { return version.block < block; });
    const auto end = std::partition_point(first, m_versions.end(), [block](const Version &version) {
        return version.block == block;
    });
    return {first, end};
}

const Version *BlockHistory::newest(qint64 block, Order order) const
{
    const auto versions = versionsOf(block);
    const auto behind =
        std::partition_point(versions.first, versions.second,
                             [order](const Version &version) { return version.order <= order; });
    return behind == versions.first ? nullptr : &*(behind - 1);
}

bool BlockHistory::isRevoked(qint64 block, Order from, Order to) const
{
    const auto revoke =
        std::lower_bound(m_revokes.begin(), m_revokes.end(), std::make_pair(block, from));
    return revoke != m_revokes.end() && revoke->first == block && revoke->second <= to;
}

qint64 BlockHistory::changedSince(qint64 block, qint64 count, Order order) const
{
    qint64 changed = 0;
    auto version =
        std::partition_point(m_versions.begin(), m_versions.end(),
                             [block](const Version &other) { return other.block < block; });
    while (version != m_versions.end() && version->block < block + count) {
        const qint64 current = version->block;
        bool isChanged = false;
        for (; version != m_versions.end() && version->block == current; ++version)
            isChanged = isChanged || version->order > order;
        changed += isChanged ? 1 : 0;
    }
    return changed;
}

} // namespace services::recoveryd::ext
