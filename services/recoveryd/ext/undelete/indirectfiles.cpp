#include "recoveryd/ext/undelete/indirectfiles.h"

#include "recoveryd/scan/decodingcheck.h"

#include <QtEndian>

#include <algorithm>

namespace services::recoveryd::ext {

namespace {

constexpr qint64 kDirectBlocks = 12;
constexpr size_t kMaxTaken = 4 * 1000 * 1000;
constexpr qint64 kMaxBlocks = qint64(1) << 28; ///< Of one file.

} // namespace

/// Files are mostly written in long runs: numbers that go up one by one. An entry of 0 ends them.
bool IndirectFiles::looksLikePointers(const QByteArray &bytes, qint64 block,
                                      Pointers *pointers) const
{
    const quint32 count = quint32(bytes.size() / 4);
    const auto pointer = [&bytes](quint32 i) {
        return qFromLittleEndian<quint32>(bytes.constData() + i * 4);
    };
    quint32 used = 0;
    quint32 steps = 0;
    for (; used < count && pointer(used) != 0; ++used) {
        if (!m_layout.isDataBlock(pointer(used)) || pointer(used) == block ||
            (used > 0 && pointer(used) == pointer(used - 1)))
            return false;
        steps += used > 0 && pointer(used) > pointer(used - 1) ? 1 : 0;
    }
    if (used == 0)
        return false;
    for (quint32 i = used; i < count; ++i)
        if (pointer(i) != 0)
            return false;
    *pointers = {block, pointer(0), pointer(used - 1), used};
    return steps * 2 + 2 >= used && isFree(pointer(0)) && isFree(pointer(used - 1));
}

bool IndirectFiles::isFree(qint64 block) const
{
    const qint64 at = block * m_layout.blockSize();
    const auto range = std::partition_point(m_free.begin(), m_free.end(),
                                            [at](const Range &other) { return other.end() <= at; });
    return range != m_free.end() && range->start <= at;
}

void IndirectFiles::take(qint64 block, const QByteArray &bytes)
{
    Pointers pointers;
    if (looksLikePointers(bytes, block, &pointers) && m_taken.size() < kMaxTaken)
        m_taken.push_back(pointers);
}

const IndirectFiles::Pointers *IndirectFiles::find(qint64 block) const
{
    const auto found =
        std::lower_bound(m_taken.begin(), m_taken.end(), block,
                         [](const Pointers &a, qint64 number) { return a.block < number; });
    return found != m_taken.end() && found->block == block ? &*found : nullptr;
}

std::vector<quint32> IndirectFiles::readPointers(const Pointers &pointers) const
{
    const QByteArray bytes = m_layout.readBlock(pointers.block);
    std::vector<quint32> read;
    for (quint32 i = 0; i < pointers.count; ++i)
        read.push_back(qFromLittleEndian<quint32>(bytes.constData() + i * 4));
    return read;
}

/// Whether the blocks it points to are indirect blocks themselves.
bool IndirectFiles::isDouble(const Pointers &pointers) const
{
    return find(pointers.first) && find(pointers.last);
}

/// Appends the blocks below a pointer block that maps `level` levels of others.
void IndirectFiles::append(const Pointers &pointers, int level, BlockMap *map)
{
    m_isUsed[size_t(&pointers - m_taken.data())] = true;
    for (quint32 block : readPointers(pointers)) {
        const qint64 logical = map->runs.back().logicalEnd();
        if (logical > kMaxBlocks)
            return;
        if (level > 0) {
            const Pointers *below = find(block);
            if (!below || m_isUsed[size_t(below - m_taken.data())]) {
                map->isComplete = false;
                return;
            }
            append(*below, level - 1, map);
            continue;
        }
        Run &last = map->runs.back();
        if (block == last.block + last.count)
            ++last.count;
        else
            map->runs.push_back({logical, block, 1});
    }
}

void IndirectFiles::markChildren()
{
    m_isChild.assign(m_taken.size(), false);
    for (const Pointers &pointers : m_taken) {
        if (!isDouble(pointers))
            continue;
        const Pointers *first = find(pointers.first);
        m_doubles.emplace(first->first, size_t(&pointers - m_taken.data()));
        for (quint32 block : readPointers(pointers))
            if (const Pointers *child = find(block))
                m_isChild[size_t(child - m_taken.data())] = true;
    }
}

bool IndirectFiles::report(const std::function<bool()> &mayCheck,
                           const std::function<bool(Finding &&finding)> &found)
{
    std::sort(m_taken.begin(), m_taken.end(),
              [](const Pointers &a, const Pointers &b) { return a.block < b.block; });
    std::sort(m_known.begin(), m_known.end());
    m_isUsed.assign(m_taken.size(), false);
    markChildren();
    for (size_t i = 0; i < m_taken.size(); ++i) {
        const Pointers &single = m_taken[i];
        // Those of the second and third level are found from the first one.
        if (m_isUsed[i] || m_isChild[i] || isDouble(single) ||
            std::binary_search(m_known.begin(), m_known.end(), single.block))
            continue;
        const BlockMap map = mapOf(single);
        if (!map.runs.empty() && !found(describe(map, mayCheck)))
            return false;
    }
    return true;
}

/// The map that begins with a file's first indirect block; empty if that cannot be one.
BlockMap IndirectFiles::mapOf(const Pointers &single)
{
    BlockMap map;
    // Some drivers put an indirect block between the data, others apart from them.
    const qint64 behind = single.first == single.block + 1 ? single.block : single.first;
    const qint64 start = behind - kDirectBlocks;
    if (!m_layout.isDataBlock(start))
        return map;
    map.runs.push_back({0, start, kDirectBlocks});
    append(single, 0, &map);
    const Pointers *next = nextLevel(single, map);
    for (int level = 1; level <= 2 && next; ++level) {
        append(*next, level, &map);
        next = next->count == m_layout.blockSize() / 4 ? nextLevel(*next, map) : nullptr;
    }
    return map;
}

/// The pointer block of the next level: behind that of this one, or behind the data so far, or the
/// one whose own data go on there.
const IndirectFiles::Pointers *IndirectFiles::nextLevel(const Pointers &pointers,
                                                        const BlockMap &map) const
{
    if (pointers.count < m_layout.blockSize() / 4)
        return nullptr;
    const qint64 behind = map.runs.back().block + map.runs.back().count;
    for (const Pointers *next : {find(pointers.block + 1), find(behind)})
        if (next && isDouble(*next) && !m_isUsed[size_t(next - m_taken.data())])
            return next;
    const auto next = m_doubles.find(behind);
    return next != m_doubles.end() && !m_isUsed[next->second] ? &m_taken[next->second] : nullptr;
}

Finding IndirectFiles::describe(const BlockMap &map, const std::function<bool()> &mayCheck) const
{
    Finding finding;
    finding.isSizeExact = false;
    finding.isMapComplete = map.isComplete;
    finding.recency = 1;
    const qint64 size = m_layout.blockSize();
    finding.content.size = map.runs.back().logicalEnd() * size;
    for (const Run &run : map.runs)
        finding.content.append(run.logical * size, run.block * size, run.count * size);
    if (!map.isComplete || !mayCheck() ||
        !completeByContents(m_layout.media(), size, mayCheck, &finding))
        finding.content.cutTo(sizeOf(map));
    return finding;
}

/// Up to the last byte that is not zero: the rest of a file's last block is cleared.
qint64 IndirectFiles::sizeOf(const BlockMap &map) const
{
    const Run &last = map.runs.back();
    const QByteArray bytes = m_layout.readBlock(last.block + last.count - 1);
    int used = bytes.size();
    while (used > 1 && bytes.at(used - 1) == 0)
        --used;
    return (last.logicalEnd() - 1) * m_layout.blockSize() + used;
}

} // namespace services::recoveryd::ext
