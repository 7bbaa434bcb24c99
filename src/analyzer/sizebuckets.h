#pragma once

#include "analyzer/directorytree.h"
#include "analyzer/duplicate_scanner.h"

#include <QHash>
#include <QStringList>

#include <deque>
#include <unordered_map>

/// Files by their size, for DuplicateScanner. Holds a few words a file instead of its path, and
/// counts only where a size has more files than may be compared.
class SizeBuckets
{
public:
    explicit SizeBuckets(const DuplicateScanner::ScanOptions &options);

    /// False if the file would only be counted.
    bool wouldKeep(qint64 size) const;
    /// `name` must be listable, and stay valid where wouldKeep() is true.
    void add(qint64 size, const DirNode *dir, const char *name);

    /// The buckets that DuplicateScanner::scan() would keep under these options; paths in the order
    /// in which they were added. Leaves the collection empty.
    QHash<qint64, QStringList> take(const DirectoryTree &tree,
                                    const std::function<bool()> &shouldStop);

private:
    static constexpr std::size_t kNone = ~std::size_t(0);

    struct Entry
    {
        const DirNode *dir;
        const char *name;
        std::size_t next;
    };

    struct Chain
    {
        std::size_t first = kNone;
        std::size_t last = kNone;
        int count = 0;
    };

    DuplicateScanner::ScanOptions m_options;
    std::deque<Entry> m_entries;
    std::unordered_map<qint64, Chain> m_chains;
};
