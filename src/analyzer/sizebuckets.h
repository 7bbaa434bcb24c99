#pragma once

#include "analyzer/directorytree.h"
#include "analyzer/duplicate_scanner.h"

#include <QHash>
#include <QStringList>

#include <functional>
#include <vector>

/// Files by their size, for DuplicateScanner. Holds a few words a file instead of its path.
class SizeBuckets
{
public:
    explicit SizeBuckets(const DuplicateScanner::ScanOptions &options);

    /// `name` must be listable and stay valid.
    void add(qint64 size, const DirNode *dir, const char *name);

    /// The buckets that DuplicateScanner::scan() would keep under these options; paths in the order
    /// in which they were added. Leaves the collection empty. Incomplete on a stop.
    QHash<qint64, QStringList> take(const DirectoryTree &tree,
                                    const std::function<bool()> &shouldStop);

private:
    struct Entry
    {
        qint64 size;
        const DirNode *dir;
        const char *name;
    };

    /// Entries of one size within a part.
    struct Run
    {
        const Entry *first;
        int count;
    };

    static void addRuns(const std::vector<Entry> &part,
                        const DuplicateScanner::ScanOptions &options, std::vector<Run> *runs);

    /// Files of one size share a part; a part is sorted at once, so many parts keep each short.
    static constexpr std::size_t kParts = 256;

    DuplicateScanner::ScanOptions m_options;
    std::vector<std::vector<Entry>> m_parts;
};
