#pragma once

#include "recoveryd/devices/mediareader.h"
#include "recoveryd/fat/clusterset.h"

#include <array>

namespace services::recoveryd::fat {

/// Where the file allocation table and its copies are.
struct TableLayout
{
    QVector<qint64> copies; ///< Byte offsets; the first is the one in use.
    qint64 length = 0;      ///< Bytes of each.
    int bits = 32;          ///< Of an entry: 12, 16 or 32.
    bool isExfat = false;   ///< All 32 bits count, not 28.
};

/// The file allocation table of FAT12, FAT16, FAT32 and exFAT, read in pages. Where a sector of the
/// first copy cannot be right, the second one's is taken. One thread.
class AllocationTable
{
public:
    static constexpr quint32 kFree = 0;
    static constexpr quint32 kEnd = 0xFFFFFFFF; ///< Last of a chain.
    static constexpr quint32 kBad = 0xFFFFFFF7;

    AllocationTable(const MediaReader &media, const TableLayout &layout, const ClusterGrid &grid);

    /// What the table says of a cluster: its successor or one of the values above. What cannot be
    /// an entry reads as kEnd.
    quint32 next(quint32 cluster) const { return entry(cluster, false); }
    /// The clusters that are in use or bad.
    ClusterSet used() const;

    /// The chain from `first` on, at most `limit` clusters. `isComplete`: it has exactly `limit`.
    ClusterRuns chain(quint32 first, quint32 limit, bool *isComplete) const
    {
        return chain(first, limit, false, isComplete);
    }
    /// The same in the second copy alone, which may have missed the last change.
    ClusterRuns chainInCopy(quint32 first, quint32 limit, bool *isComplete) const
    {
        return chain(first, limit, true, isComplete);
    }

private:
    struct Page
    {
        qint64 index = -1;
        QByteArray bytes;
    };

    quint32 entry(quint32 cluster, bool isCopy) const;
    quint32 parsed(quint32 raw) const;
    const QByteArray &page(qint64 index, bool isCopy) const;
    QByteArray mergedPage(qint64 index) const;
    bool isPlausible(const char *sector, int length) const;
    ClusterRuns chain(quint32 first, quint32 limit, bool isCopy, bool *isComplete) const;

    const MediaReader &m_media;
    TableLayout m_layout;
    ClusterGrid m_grid;
    mutable std::array<Page, 16> m_pages;
};

} // namespace services::recoveryd::fat
