#pragma once

#include "recoveryd/ext/undelete/blockmap.h"
#include "recoveryd/scan/finding.h"

#include <functional>
#include <unordered_map>
#include <vector>

namespace services::recoveryd::ext {

/// Finds files by the indirect blocks that a deletion on ext2, or on ext3 before its journal was
/// overwritten, leaves as they were. The inode is empty by then: name and times are lost, the first
/// twelve blocks are those before the first one that is pointed to, and the size is known only to
/// the block. The contents tell the rest: their end in the last block, and whether the first twelve
/// were right. One thread.
class IndirectFiles
{
public:
    /// `free`: what is in use belongs to no deleted file; in bytes.
    IndirectFiles(const Layout &layout, const Ranges &free)
        : m_layout(layout)
        , m_free(free)
    {}

    /// Remembers a block if it looks like an indirect block.
    void take(qint64 block, const QByteArray &bytes);
    /// A block that belongs to the map of a file found otherwise.
    void leaveOut(const std::vector<qint64> &blocks)
    {
        m_known.insert(m_known.end(), blocks.begin(), blocks.end());
    }
    /// Makes files of what was taken; `found` returns false to end.
    /// Contents are read to find where files end while `mayCheck` allows.
    [[nodiscard]] bool report(const std::function<bool()> &mayCheck,
                              const std::function<bool(Finding &&finding)> &found);

private:
    struct Pointers
    {
        qint64 block = 0;
        quint32 first = 0;
        quint32 last = 0;
        quint32 count = 0;
    };

    bool looksLikePointers(const QByteArray &bytes, qint64 block, Pointers *pointers) const;
    const Pointers *find(qint64 block) const;
    std::vector<quint32> readPointers(const Pointers &pointers) const;
    void markChildren();
    bool isDouble(const Pointers &pointers) const;
    bool isFree(qint64 block) const;
    BlockMap mapOf(const Pointers &single);
    const Pointers *nextLevel(const Pointers &single, const BlockMap &map) const;
    void append(const Pointers &pointers, int level, BlockMap *map);
    Finding describe(const BlockMap &map, const std::function<bool()> &mayCheck) const;
    qint64 sizeOf(const BlockMap &map) const;

    const Layout &m_layout;
    Ranges m_free;
    std::vector<Pointers> m_taken; ///< Ascending by block before report() looks anything up.
    std::vector<qint64> m_known;
    std::unordered_map<qint64, size_t> m_doubles; ///< By the first block of data below them.
    std::vector<bool> m_isUsed;
    std::vector<bool> m_isChild; ///< A block of the second or third level points to it.
};

} // namespace services::recoveryd::ext
