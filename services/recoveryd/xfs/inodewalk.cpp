#include "recoveryd/xfs/inodewalk.h"

#include <algorithm>

namespace services::recoveryd::xfs {

namespace {

constexpr quint64 kInodesPerChunk = 64;

} // namespace

void InodeWalk::readTrees()
{
    constexpr std::size_t kMaxChunks = 20000000;
    const Geometry &geometry = m_volume.geometry();
    m_chunks.clear();
    m_isKnown.assign(geometry.agCount, false);
    for (quint32 ag = 0; ag < geometry.agCount; ++ag) {
        if (geometry.agStart(ag) >= m_volume.media().size())
            break;
        const std::size_t before = m_chunks.size();
        m_isKnown[ag] = m_volume.forEachChunk(ag, [this](const InodeChunk &chunk) {
            m_chunks.push_back(chunk);
            return m_chunks.size() < kMaxChunks;
        });
        if (!m_isKnown[ag])
            m_chunks.resize(before);
    }
}

const InodeChunk *InodeWalk::chunkOf(quint64 number) const
{
    const auto it = std::upper_bound(
        m_chunks.begin(), m_chunks.end(), number,
        [](quint64 wanted, const InodeChunk &chunk) { return wanted < chunk.first; });
    if (it == m_chunks.begin())
        return nullptr;
    const InodeChunk &chunk = *(it - 1);
    const quint64 index = number - chunk.first;
    return index < kInodesPerChunk && (chunk.missing >> index & 1) == 0 ? &chunk : nullptr;
}

bool InodeWalk::isAllocated(quint64 number) const
{
    const InodeChunk *const chunk = chunkOf(number);
    return chunk && (chunk->free >> (number - chunk->first) & 1) == 0;
}

qint64 InodeWalk::totalWork() const
{
    return qint64(m_chunks.size()) * qint64(kInodesPerChunk) * m_volume.geometry().inodeSize;
}

bool InodeWalk::run(const Takes &take, const GoesOn &goesOn) const
{
    constexpr qint64 kMostAtOnce = 2 * 1024 * 1024;
    const Geometry &geometry = m_volume.geometry();
    const qint64 size = geometry.inodeSize;
    const qint64 chunkBytes = qint64(kInodesPerChunk) * size;
    qint64 done = 0;
    for (std::size_t i = 0; i < m_chunks.size();) {
        // Chunks that lie one behind the other are read at once.
        const qint64 start = geometry.offsetOfInode(m_chunks[i].first);
        std::size_t end = i + 1;
        while (end < m_chunks.size() && qint64(end - i + 1) * chunkBytes <= kMostAtOnce &&
               geometry.offsetOfInode(m_chunks[end].first) == start + qint64(end - i) * chunkBytes)
            ++end;
        if (!goesOn(done))
            return false;
        const QByteArray bytes = m_volume.media().read(start, qint64(end - i) * chunkBytes);
        for (std::size_t k = i; k < end; ++k) {
            const InodeChunk &chunk = m_chunks[k];
            for (quint64 n = 0; n < kInodesPerChunk; ++n) {
                const qint64 at = qint64(k - i) * chunkBytes + qint64(n) * size;
                if ((chunk.missing >> n & 1) == 0 && at + size <= bytes.size() &&
                    !take(chunk.first + n, View(bytes.constData() + at, int(size)),
                          (chunk.free >> n & 1) == 0))
                    return false;
            }
        }
        done += qint64(end - i) * chunkBytes;
        i = end;
    }
    return goesOn(done);
}

} // namespace services::recoveryd::xfs
