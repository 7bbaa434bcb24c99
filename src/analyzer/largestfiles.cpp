#include "analyzer/largestfiles.h"

#include "analyzer/scanidentity.h"

#include <QDateTime>

#include <algorithm>

namespace {

/// Entries between two looks at the stop.
constexpr int kEntriesPerLook = 256;
/// Entries sorted between two looks at it.
constexpr std::ptrdiff_t kEntriesPerSort = 16384;

/// std::sort() that a stop ends, with the range in no order then.
template <typename Iterator, typename Less>
void sortUntil(const std::function<bool()> &shouldStop, Iterator first, Iterator last, Less less)
{
    while (last - first > kEntriesPerSort) {
        if (shouldStop())
            return;
        const Iterator middle = first + (last - first) / 2;
        std::nth_element(first, middle, last, less);
        sortUntil(shouldStop, first, middle, less);
        first = middle;
    }
    std::sort(first, last, less);
}

} // namespace

LargestFiles::LargestFiles(int limit)
    : m_limit(limit)
{}

bool LargestFiles::ranksBefore(const LargeFileEntry &a, const LargeFileEntry &b)
{
    return a.size != b.size ? a.size > b.size : a.sequence < b.sequence;
}

bool LargestFiles::wouldKeep(qint64 size) const
{
    return !isFull() || size > m_entries.front().size;
}

void LargestFiles::add(const DirectoryEntry &file, const DirNode *dir, const char *name)
{
    if (isFull()) {
        std::pop_heap(m_entries.begin(), m_entries.end(), ranksBefore);
        m_entries.pop_back();
    }
    m_entries.push_back({file.size, file.modifiedMs, file.identity, dir, name, m_sequence++});
    if (m_limit > 0)
        std::push_heap(m_entries.begin(), m_entries.end(), ranksBefore);
}

QVariantList LargestFiles::takeSorted(const DirectoryTree &tree,
                                      const std::function<bool()> &shouldStop)
{
    std::vector<LargeFileEntry> entries;
    entries.swap(m_entries);
    sortUntil(shouldStop, entries.begin(), entries.end(), ranksBefore);
    QVariantList files;
    files.reserve(int(entries.size()));
    for (const LargeFileEntry &entry : entries) {
        if (files.size() % kEntriesPerLook == 0 && shouldStop())
            break;
        QVariantMap file;
        file.insert(QStringLiteral("path"), tree.listedPath(entry.dir, entry.name));
        file.insert(QStringLiteral("size"), entry.size);
        file.insert(QStringLiteral("modified"), QDateTime::fromMSecsSinceEpoch(entry.modifiedMs));
        insertIdentity(entry.identity, &file);
        files.append(file);
    }
    return files;
}
