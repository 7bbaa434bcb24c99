#pragma once

#include "analyzer/directorylisting.h"
#include "analyzer/directorytree.h"

#include <QVariantList>

#include <functional>
#include <vector>

/// The largest files met, at most a number of them, in memory bounded by that number apart from the
/// names. Of files of one size those met first stay.
class LargestFiles
{
public:
    /// A limit of 0 or less means none.
    explicit LargestFiles(int limit);

    /// False if the file is not among the largest so far.
    bool wouldKeep(qint64 size) const;
    /// For a file that it would keep. `name`, that of the file, must be listable and stay valid.
    void add(const DirectoryEntry &file, const DirNode *dir, const char *name);

    /// Maps of "path", "size", "modified" and the file's identity, largest first. Leaves the
    /// collection empty. Ends early on a stop.
    QVariantList takeSorted(const DirectoryTree &tree, const std::function<bool()> &shouldStop);

private:
    struct LargeFileEntry
    {
        qint64 size;
        qint64 modifiedMs;
        core::FileIdentity identity;
        const DirNode *dir;
        const char *name;
        quint64 sequence;
    };

    static bool ranksBefore(const LargeFileEntry &a, const LargeFileEntry &b);
    bool isFull() const { return m_limit > 0 && int(m_entries.size()) >= m_limit; }

    const int m_limit;
    quint64 m_sequence = 0;
    std::vector<LargeFileEntry> m_entries; // with a limit a heap, the smallest entry at its front
};
