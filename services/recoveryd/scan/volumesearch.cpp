#include "recoveryd/scan/volumesearch.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kSector = 512;
constexpr qint64 kMark = 4096; ///< What a recogniser is given.
constexpr qint64 kWindow = 4 * 1024 * 1024;
constexpr int kMaxMarks = 4096;
constexpr int kMaxVolumes = 64;
// Partitions begin at a MiB; a volume that begins later does not fill the stretch.
constexpr qint64 kSlack = 1024 * 1024;

bool isZero(const char *bytes)
{
    return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, size_t(kSector - 1)) == 0;
}

Ranges without(const Range &whole, const Ranges &skipped)
{
    Ranges left;
    qint64 at = whole.start;
    for (const Range &range : skipped) {
        if (range.start > at)
            left.append({at, qMin(range.start, whole.end()) - at});
        at = qMax(at, range.end());
        if (at >= whole.end())
            return left;
    }
    left.append({at, whole.end() - at});
    return left;
}

qint64 endOf(const FoundVolume &volume)
{
    return volume.start + volume.size;
}

bool isOneVolume(const FoundVolume &a, const FoundVolume &b)
{
    return a.type == b.type && a.start == b.start;
}

} // namespace

VolumeSearch::VolumeSearch(const MediaReader &media, Ranges skipped)
    : m_media(media)
    , m_ranges(without({0, media.size()}, skipped))
{}

bool VolumeSearch::searchEnds(ScanObserver &observer, qint64 headLength)
{
    const qint64 size = m_media.size();
    const qint64 head = qMin(size, headLength);
    const qint64 tail = qMax(head, size - kTail);
    for (const Range &part : {Range{0, head}, Range{tail, size - tail}}) {
        Ranges left;
        for (const Range &range : qAsConst(m_ranges)) {
            const qint64 start = qMax(range.start, part.start);
            const qint64 end = qMin(range.end(), part.end());
            if (start >= end) {
                left.append(range);
                continue;
            }
            if (!searchRange({start, end - start}, observer))
                return false;
            if (range.start < start)
                left.append({range.start, start - range.start});
            if (end < range.end())
                left.append({end, range.end() - end});
        }
        m_ranges = left;
        if (hasFillingVolume())
            return true;
    }
    return false;
}

bool VolumeSearch::searchAll(ScanObserver &observer)
{
    const Ranges ranges = m_ranges;
    m_ranges.clear();
    return std::all_of(ranges.begin(), ranges.end(),
                       [&](const Range &range) { return searchRange(range, observer); });
}

bool VolumeSearch::searchRange(const Range &range, ScanObserver &observer)
{
    QByteArray window(int(qMin(range.length + kMark, kWindow + kMark)), '\0');
    for (qint64 at = range.start; at < range.end(); at += kWindow) {
        if (!observer.mayGoOn() || m_media.isGone())
            return false;
        const qint64 length = qMin(kWindow, range.end() - at);
        // The last marks of a window reach into the next one; past the medium they are zeros.
        m_media.read(at, window.data(), length + kMark);
        for (qint64 i = 0; i < length; i += kSector)
            if (!isZero(window.constData() + i))
                look(at + i, QByteArray::fromRawData(window.constData() + i, int(kMark)));
        m_done += length;
        observer.advanced(m_done);
    }
    return true;
}

void VolumeSearch::look(qint64 offset, const QByteArray &bytes)
{
    for (const FileSystemSupport &family : supportedFileSystems()) {
        FoundVolume found;
        if (!family.recognise || m_found.size() >= kMaxMarks ||
            !family.recognise(m_media, offset, bytes, &found) || found.size <= 0)
            continue;
        const auto same = std::find_if(m_found.begin(), m_found.end(), [&found](const auto &known) {
            return isOneVolume(known, found);
        });
        if (same == m_found.end())
            m_found.append(found);
        else if (same->isFromBackup && !found.isFromBackup)
            *same = found;
    }
}

bool VolumeSearch::hasFillingVolume() const
{
    return std::any_of(m_found.begin(), m_found.end(), [this](const FoundVolume &volume) {
        return volume.start >= 0 && volume.start <= kSlack &&
               endOf(volume) >= m_media.size() - m_media.size() / 10;
    });
}

QVector<FoundVolume> VolumeSearch::mergedVolumes(QVector<FoundVolume> volumes)
{
    // The surest first: a primary superblock before a backup, then the larger volume.
    std::stable_sort(
        volumes.begin(), volumes.end(), [](const FoundVolume &a, const FoundVolume &b) {
            return a.isFromBackup != b.isFromBackup ? !a.isFromBackup : a.size > b.size;
        });
    QVector<FoundVolume> kept;
    for (const FoundVolume &volume : qAsConst(volumes)) {
        const bool isKnown = std::any_of(kept.begin(), kept.end(), [&volume](const auto &other) {
            if (isOneVolume(volume, other))
                return true;
            const bool isInside = volume.start >= other.start && endOf(volume) <= endOf(other);
            const bool isOverlapping = volume.start < endOf(other) && other.start < endOf(volume);
            // A file system of another kind at the same place is what was there before a format;
            // one farther in is a disk image kept as a file, or a stray copy.
            return (isInside && volume.start != other.start && !other.isFromBackup) ||
                   (isOverlapping && volume.type == other.type &&
                    (volume.isFromBackup || !other.isFromBackup));
        });
        if (!isKnown && kept.size() < kMaxVolumes)
            kept.append(volume);
    }
    std::sort(kept.begin(), kept.end(), [](const FoundVolume &a, const FoundVolume &b) {
        return a.start != b.start ? a.start < b.start : a.type < b.type;
    });
    return kept;
}

} // namespace services::recoveryd
