#include "recoveryd/fat/allocationtable.h"

#include "recoveryd/devices/bytes.h"

#include <algorithm>

namespace services::recoveryd::fat {

namespace {

// A multiple of 3, so that no pair of 12-bit entries is cut; 12 KiB is the most they take.
constexpr qint64 kPage = 96 * 1024;
constexpr int kSector = 512;
constexpr quint32 kEndFrom = 0xFFFFFFF8;

bool isZero(const char *bytes, int length)
{
    return std::all_of(bytes, bytes + length, [](char c) { return c == 0; });
}

} // namespace

AllocationTable::AllocationTable(const MediaReader &media, const TableLayout &layout,
                                 const ClusterGrid &grid)
    : m_media(media)
    , m_layout(layout)
    , m_grid(grid)
{}

quint32 AllocationTable::parsed(quint32 raw) const
{
    quint32 value = raw;
    if (m_layout.bits == 12)
        value = (raw & 0xFFF) >= 0xFF7 ? raw | 0xFFFFF000 : raw & 0xFFF;
    else if (m_layout.bits == 16)
        value = (raw & 0xFFFF) >= 0xFFF7 ? raw | 0xFFFF0000 : raw & 0xFFFF;
    else if (!m_layout.isExfat)
        value = (raw & 0x0FFFFFFF) >= 0x0FFFFFF7 ? raw | 0xF0000000 : raw & 0x0FFFFFFF;
    return value >= kEndFrom ? kEnd : value;
}

bool AllocationTable::isPlausible(const char *sector, int length) const
{
    // 12-bit entries cross sectors, and any value of theirs may be one.
    if (m_layout.bits == 12)
        return true;
    const int width = m_layout.bits / 8;
    for (int at = 0; at + width <= length; at += width) {
        const quint32 value = parsed(width == 2 ? qFromLittleEndian<quint16>(sector + at)
                                                : qFromLittleEndian<quint32>(sector + at));
        if (value != kFree && value != 1 && value < kBad && !m_grid.contains(value))
            return false;
    }
    return true;
}

QByteArray AllocationTable::mergedPage(qint64 index) const
{
    const qint64 at = index * kPage;
    const qint64 length = qMax(qint64(0), qMin(kPage, m_layout.length - at));
    QByteArray bytes = m_media.read(m_layout.copies.first() + at, length);
    if (m_layout.copies.size() < 2)
        return bytes;
    const QByteArray copy = m_media.read(m_layout.copies.at(1) + at, length);
    if (bytes == copy)
        return bytes;
    for (int i = 0; i < bytes.size(); i += kSector) {
        const int size = qMin(kSector, bytes.size() - i);
        const bool isLost =
            isZero(bytes.constData() + i, size) || !isPlausible(bytes.constData() + i, size);
        if (isLost && isPlausible(copy.constData() + i, size))
            std::copy_n(copy.constData() + i, size, bytes.data() + i);
    }
    return bytes;
}

const QByteArray &AllocationTable::page(qint64 index, bool isCopy) const
{
    const qint64 key = index * 2 + (isCopy ? 1 : 0);
    Page &kept = m_pages[std::size_t(key) % m_pages.size()];
    if (kept.index != key) {
        const qint64 at = index * kPage;
        kept.bytes = isCopy ? m_media.read(m_layout.copies.at(1) + at,
                                           qMax(qint64(0), qMin(kPage, m_layout.length - at)))
                            : mergedPage(index);
        kept.index = key;
    }
    return kept.bytes;
}

quint32 AllocationTable::entry(quint32 cluster, bool isCopy) const
{
    if (!m_grid.contains(cluster) || m_layout.copies.isEmpty())
        return kEnd;
    const qint64 at = qint64(cluster) * m_layout.bits / 8;
    const int inPage = int(at % kPage);
    const QByteArray &bytes = page(at / kPage, isCopy);
    if (inPage + (m_layout.bits + 7) / 8 > bytes.size())
        return kFree;
    const char *const data = bytes.constData() + inPage;
    quint32 raw = 0;
    if (m_layout.bits == 32)
        raw = qFromLittleEndian<quint32>(data);
    else if (m_layout.bits == 16)
        raw = qFromLittleEndian<quint16>(data);
    else
        raw = (cluster & 1) ? qFromLittleEndian<quint16>(data) >> 4
                            : qFromLittleEndian<quint16>(data) & 0xFFF;
    const quint32 value = parsed(raw);
    return value == kFree || value >= kBad || m_grid.contains(value) ? value : kEnd;
}

ClusterSet AllocationTable::used() const
{
    ClusterSet set(m_grid);
    for (quint32 cluster = ClusterGrid::kFirst; cluster < m_grid.end(); ++cluster)
        if (entry(cluster, false) != kFree)
            set.insert(cluster);
    return set;
}

ClusterRuns AllocationTable::chain(quint32 first, quint32 limit, bool isCopy,
                                   bool *isComplete) const
{
    ClusterRuns runs;
    quint32 count = 0;
    quint32 at = first;
    *isComplete = false;
    if (isCopy && m_layout.copies.size() < 2)
        return runs;
    while (count < limit && m_grid.contains(at)) {
        const quint32 following = entry(at, isCopy);
        if (following == kFree || following == kBad)
            return runs;
        appendRun(&runs, at, 1);
        ++count;
        at = following;
    }
    *isComplete = count == limit && at == kEnd;
    return runs;
}

} // namespace services::recoveryd::fat
