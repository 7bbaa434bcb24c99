#include "analyzer/sizebuckets.h"

#include "analyzer/bucketselection.h"

#include <algorithm>

SizeBuckets::SizeBuckets(const DuplicateScanner::ScanOptions &options)
    : m_options(options)
    , m_parts(kParts)
{}

void SizeBuckets::add(qint64 size, const DirNode *dir, const char *name)
{
    // The golden ratio spreads sizes that are multiples of a block as well as others.
    const quint64 spread = quint64(size) * Q_UINT64_C(0x9E3779B97F4A7C15);
    m_parts[std::size_t(spread >> 56) % kParts].push_back({size, dir, name});
}

void SizeBuckets::addRuns(const std::vector<Entry> &part,
                          const DuplicateScanner::ScanOptions &options, std::vector<Run> *runs)
{
    for (std::size_t first = 0; first < part.size();) {
        std::size_t last = first;
        while (last < part.size() && part[last].size == part[first].size)
            ++last;
        const int count = int(last - first);
        if (isWorthComparing(part[first].size, count, options))
            runs->push_back({&part[first], count});
        first = last;
    }
}

QHash<qint64, QStringList> SizeBuckets::take(const DirectoryTree &tree,
                                             const std::function<bool()> &shouldStop)
{
    std::vector<Run> runs;
    for (std::vector<Entry> &part : m_parts) {
        if (shouldStop())
            break;
        std::stable_sort(part.begin(), part.end(),
                         [](const Entry &a, const Entry &b) { return a.size < b.size; });
        addRuns(part, m_options, &runs);
    }
    keepMostAtStake(
        &runs, m_options.maximumBuckets, [](const Run &run) { return run.first->size; },
        [](const Run &run) { return run.count; });

    QHash<qint64, QStringList> sizeGroups;
    for (const Run &run : runs) {
        if (shouldStop())
            break;
        QStringList &paths = sizeGroups[run.first->size];
        paths.reserve(run.count);
        for (int i = 0; i < run.count; ++i)
            paths.append(tree.listedPath(run.first[i].dir, run.first[i].name));
    }
    m_parts.clear();
    return sizeGroups;
}
