#include "recoveryd/btrfs/chunkmap.h"

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

constexpr int kMaxStripes = 1024;
constexpr std::size_t kMaxChunks = 1000 * 1000;
constexpr int kMaxParts = 65536;
constexpr qint64 kMaxPlace = qint64(1) << 60;
constexpr quint64 kStriped = kRaid0 | kRaid10 | kRaid5 | kRaid6;

} // namespace

bool ChunkMap::isStriped(const Chunk &chunk)
{
    return (chunk.flags & kStriped) != 0;
}

/// Without a chunk item it is not known how a chunk is spread over several devices.
bool ChunkMap::isOnOneDevice(const Chunk &chunk)
{
    return std::all_of(chunk.stripes.cbegin(), chunk.stripes.cend(), [&chunk](const Stripe &other) {
        return other.device == chunk.stripes.first().device;
    });
}

int ChunkMap::dataStripes(const Chunk &chunk)
{
    const int parity = (chunk.flags & kRaid5) ? 1 : (chunk.flags & kRaid6) ? 2 : 0;
    return chunk.stripes.size() / chunk.subStripes - parity;
}

bool ChunkMap::add(quint64 address, const char *item, int size)
{
    if (size < kChunkItemSize + kStripeSize)
        return false;
    Chunk chunk;
    chunk.length = qint64(le64(item));
    chunk.stripeLength = qint64(le64(item + 16));
    chunk.flags = le64(item + 24);
    const int count = le16(item + 44);
    chunk.subStripes = (chunk.flags & kRaid10) ? qMax(1, int(le16(item + 46))) : 1;
    if (count == 0 || count > kMaxStripes || count > (size - kChunkItemSize) / kStripeSize ||
        chunk.length <= 0 || chunk.length > kMaxPlace || address > quint64(kMaxPlace) ||
        chunk.stripeLength < kNodeAlignment || chunk.stripeLength > chunk.length ||
        count % chunk.subStripes != 0)
        return false;
    for (int i = 0; i < count; ++i) {
        const char *const stripe = item + kChunkItemSize + i * kStripeSize;
        const qint64 start = qint64(le64(stripe + 8));
        if (start < 0 || start > kMaxPlace)
            return false;
        chunk.stripes.append({le64(stripe), start});
    }
    if (dataStripes(chunk) <= 0 || m_chunks.size() >= kMaxChunks)
        return false;
    m_chunks.emplace(address, chunk);
    return true;
}

void ChunkMap::addAll(const QByteArray &systemChunks)
{
    constexpr int kKeySize = 17;
    for (int at = 0; at + kKeySize + kChunkItemSize <= systemChunks.size();) {
        const char *const key = systemChunks.constData() + at;
        const int stripes = le16(key + kKeySize + 44);
        const int size = kChunkItemSize + stripes * kStripeSize;
        at += kKeySize + size;
        if (at > systemChunks.size() || Key::at(key).type != kChunkItem)
            return;
        add(Key::at(key).offset, key + kKeySize, size);
    }
}

void ChunkMap::addDeviceExtent(quint64 device, qint64 physical, quint64 address, qint64 length)
{
    if (physical < 0 || physical > kMaxPlace || length <= 0 || length > kMaxPlace ||
        address > quint64(kMaxPlace) || m_extents.size() >= kMaxChunks)
        return;
    Chunk &chunk = m_extents[address];
    const bool isKnown =
        std::any_of(chunk.stripes.cbegin(), chunk.stripes.cend(), [=](const Stripe &stripe) {
            return stripe.device == device && stripe.start == physical;
        });
    if (isKnown || chunk.stripes.size() >= kMaxStripes)
        return;
    chunk.length = qMax(chunk.length, length);
    chunk.stripes.append({device, physical});
}

ChunkMap::Found ChunkMap::find(quint64 address) const
{
    for (const auto *map : {&m_chunks, &m_extents}) {
        auto it = map->upper_bound(address);
        if (it == map->begin())
            continue;
        --it;
        if (address - it->first < quint64(it->second.length) &&
            (map == &m_chunks || isOnOneDevice(it->second)))
            return {it->first, &it->second};
    }
    return {};
}

QVector<quint64> ChunkMap::devices() const
{
    QVector<quint64> devices;
    for (const auto *map : {&m_chunks, &m_extents})
        for (const auto &entry : *map)
            for (const Stripe &stripe : entry.second.stripes)
                if (!devices.contains(stripe.device) && devices.size() < kMaxStripes)
                    devices.append(stripe.device);
    std::sort(devices.begin(), devices.end());
    return devices;
}

int ChunkMap::copies(quint64 address) const
{
    const Found found = find(address);
    if (!found.chunk)
        return 0;
    if (isStriped(*found.chunk))
        return found.chunk->subStripes;
    return int(std::count_if(found.chunk->stripes.cbegin(), found.chunk->stripes.cend(),
                             [this](const Stripe &stripe) { return stripe.device == m_device; }));
}

ChunkMap::Part ChunkMap::stripedPart(const Chunk &chunk, qint64 offset, qint64 length,
                                     int copy) const
{
    const qint64 stripe = offset / chunk.stripeLength;
    const qint64 inside = offset % chunk.stripeLength;
    const int columns = dataStripes(chunk);
    const qint64 row = stripe / columns;
    int index = int(stripe % columns);
    if (chunk.flags & (kRaid5 | kRaid6))
        index = int((index + row) % chunk.stripes.size());
    else
        index = index * chunk.subStripes + copy % chunk.subStripes;
    const Stripe &on = chunk.stripes.at(index);
    Part part;
    part.length = qMin(length, chunk.stripeLength - inside);
    if (on.device == m_device)
        part.physical = on.start + row * chunk.stripeLength + inside;
    return part;
}

ChunkMap::Part ChunkMap::partOf(const Found &found, quint64 address, qint64 length, int copy) const
{
    const qint64 offset = qint64(address - found.start);
    const Chunk &chunk = *found.chunk;
    length = qMin(length, chunk.length - offset);
    if (isStriped(chunk))
        return stripedPart(chunk, offset, length, copy);
    int seen = 0;
    for (const Stripe &stripe : chunk.stripes)
        if (stripe.device == m_device && seen++ == copy)
            return {stripe.start + offset, length};
    return {-1, length};
}

QVector<ChunkMap::Part> ChunkMap::map(quint64 address, qint64 length, int copy) const
{
    QVector<Part> parts;
    while (length > 0) {
        const Found found = find(address);
        if (!found.chunk || parts.size() >= kMaxParts) {
            parts.append({-1, length});
            break;
        }
        Part part = partOf(found, address, length, copy);
        // One mirror of a striped chunk may be here, the other one not.
        for (int other = 0; part.physical < 0 && other < found.chunk->subStripes; ++other)
            part = partOf(found, address, length, other);
        parts.append(part);
        address += quint64(part.length);
        length -= part.length;
    }
    return parts;
}

Ranges ChunkMap::ranges(quint64 flags, bool allCopies) const
{
    Ranges ranges;
    for (const auto &entry : m_chunks) {
        const Chunk &chunk = entry.second;
        if ((chunk.flags & flags) == 0)
            continue;
        const qint64 rows = isStriped(chunk) ? chunk.length / dataStripes(chunk) : chunk.length;
        for (const Stripe &stripe : chunk.stripes) {
            if (stripe.device != m_device)
                continue;
            ranges.append({stripe.start, rows});
            if (!allCopies && !isStriped(chunk))
                break;
        }
    }
    return joinedRanges(ranges);
}

} // namespace services::recoveryd::btrfs
