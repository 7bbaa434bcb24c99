#pragma once

#include "recoveryd/scan/filesystemsupport.h"

namespace services::recoveryd {

/// Searches a stretch of a medium for file systems that no partition table knows: superblocks, boot
/// sectors and their backups, at every sector. Reads each byte at most once, in ascending order.
class VolumeSearch
{
public:
    /// `media`: the stretch. `skipped`: parts of it that are known and not read, ascending.
    explicit VolumeSearch(const MediaReader &media, Ranges skipped = Ranges());

    /// Bytes that a search through all of the stretch reads.
    qint64 totalWork() const { return totalLength(m_ranges); }
    /// Holds a backup superblock of every family that has one near its start. Bytes.
    static constexpr qint64 kHead = 160 * 1024 * 1024;
    static constexpr qint64 kTail = 1024 * 1024;
    /// Searches where a volume that fills the stretch leaves its marks: the first and the last
    /// bytes. True if one was found, so that no further search is needed.
    bool searchEnds(ScanObserver &observer, qint64 headLength = kHead);
    /// Searches everything that searchEnds() has not. False if it was told to stop.
    bool searchAll(ScanObserver &observer);

    /// What was found, copies and overlaps merged, ascending by start.
    QVector<FoundVolume> found() const { return mergedVolumes(m_found); }

    /// Of several marks of one volume one is kept, and of volumes inside another one the outer if
    /// that was told by its first superblock. At most 64 are kept. Pure.
    static QVector<FoundVolume> mergedVolumes(QVector<FoundVolume> volumes);

private:
    [[nodiscard]] bool searchRange(const Range &range, ScanObserver &observer);
    void look(qint64 offset, const QByteArray &bytes);
    bool hasFillingVolume() const;

    const MediaReader &m_media;
    Ranges m_ranges; ///< Not searched yet.
    qint64 m_done = 0;
    QVector<FoundVolume> m_found;
};

} // namespace services::recoveryd
