#include "analyzer/sizebuckets.h"

#include "analyzer/bucketselection.h"

#include <utility>
#include <vector>

SizeBuckets::SizeBuckets(const DuplicateScanner::ScanOptions &options)
    : m_options(options)
{}

bool SizeBuckets::wouldKeep(qint64 size) const
{
    if (m_options.maximumFilesPerBucket <= 0)
        return true;
    const auto chain = m_chains.find(size);
    return chain == m_chains.end() || chain->second.count < m_options.maximumFilesPerBucket;
}

void SizeBuckets::add(qint64 size, const DirNode *dir, const char *name)
{
    const bool kept = wouldKeep(size);
    Chain &chain = m_chains[size];
    ++chain.count;
    if (!kept)
        return;
    const std::size_t entry = m_entries.size();
    m_entries.push_back({dir, name, kNone});
    if (chain.first == kNone)
        chain.first = entry;
    else
        m_entries[chain.last].next = entry;
    chain.last = entry;
}

QHash<qint64, QStringList> SizeBuckets::take(const DirectoryTree &tree,
                                             const std::function<bool()> &shouldStop)
{
    std::vector<std::pair<qint64, Chain>> buckets;
    for (const auto &chain : m_chains)
        if (isWorthComparing(chain.first, chain.second.count, m_options))
            buckets.push_back(chain);
    m_chains.clear();
    keepMostAtStake(
        &buckets, m_options.maximumBuckets, [](const auto &bucket) { return bucket.first; },
        [](const auto &bucket) { return bucket.second.count; });

    QHash<qint64, QStringList> sizeGroups;
    for (const auto &bucket : buckets) {
        if (shouldStop())
            break;
        QStringList &paths = sizeGroups[bucket.first];
        paths.reserve(bucket.second.count);
        for (std::size_t i = bucket.second.first; i != kNone; i = m_entries[i].next)
            paths.append(tree.listedPath(m_entries[i].dir, m_entries[i].name));
    }
    m_entries.clear();
    return sizeGroups;
}
