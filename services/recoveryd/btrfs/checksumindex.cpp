#include "recoveryd/btrfs/checksumindex.h"

#include <QVector>

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

constexpr std::size_t kMaxLeaves = 4 * 1000 * 1000;
constexpr int kMaxCandidates = 256;

} // namespace

void ChecksumIndex::add(const NodeView &leaf, qint64 offset)
{
    // No sum is shorter than 4 bytes, and no sector longer than 64 KiB.
    constexpr quint64 kMaxSector = 65536;
    const ItemView first = leaf.item(0);
    const ItemView last = leaf.item(leaf.count() - 1);
    if (first.key.type != kChecksums || last.key.type != kChecksums ||
        m_leaves.size() >= kMaxLeaves)
        return;
    m_leaves.push_back({first.key.offset, last.key.offset + quint64(last.size) / 4 * kMaxSector, 0,
                        leaf.generation(), offset});
}

void ChecksumIndex::finish()
{
    std::sort(m_leaves.begin(), m_leaves.end(),
              [](const Leaf &a, const Leaf &b) { return a.first < b.first; });
    quint64 farthest = 0;
    for (Leaf &leaf : m_leaves)
        leaf.farthest = farthest = qMax(farthest, leaf.end);
}

QByteArray ChecksumIndex::sums(const MediaReader &media, const NodeFormat &format, quint64 address,
                               int count, quint64 generation, QVector<bool> *isKnown) const
{
    const quint64 sector = quint64(format.sectorSize);
    const quint64 end = address + quint64(count) * sector;
    const int size = checksumSize(format.checksum);
    std::vector<const Leaf *> candidates;
    auto it = std::partition_point(m_leaves.cbegin(), m_leaves.cend(),
                                   [end](const Leaf &leaf) { return leaf.first < end; });
    for (; it != m_leaves.cbegin() && std::prev(it)->farthest > address &&
           int(candidates.size()) < kMaxCandidates;
         --it)
        if (std::prev(it)->end > address && std::prev(it)->generation >= generation)
            candidates.push_back(&*std::prev(it));
    std::sort(candidates.begin(), candidates.end(),
              [](const Leaf *a, const Leaf *b) { return a->generation < b->generation; });
    QByteArray sums(count * size, '\0');
    isKnown->fill(false, count);
    int left = count;
    for (const Leaf *leaf : candidates) {
        if (left == 0)
            break;
        const QByteArray *bytes = m_cache.object(leaf->offset);
        if (!bytes) {
            auto *const read = new QByteArray(media.read(leaf->offset, format.nodeSize));
            if (!isNode(read->constData(), format))
                read->clear();
            m_cache.insert(leaf->offset, read);
            bytes = read;
        }
        if (bytes->isEmpty())
            continue;
        const NodeView node(bytes->constData(), bytes->size());
        for (int i = 0; i < node.count(); ++i) {
            const ItemView item = node.item(i);
            const quint64 itemEnd = item.key.offset + quint64(item.size / size) * sector;
            const quint64 from = qMax(address, item.key.offset);
            for (quint64 at = from; at < qMin(end, itemEnd); at += sector) {
                const int index = int((at - address) / sector);
                if (isKnown->at(index))
                    continue;
                std::memcpy(sums.data() + index * size,
                            item.data + int((at - item.key.offset) / sector) * size, size_t(size));
                (*isKnown)[index] = true;
                --left;
            }
        }
    }
    return sums;
}

} // namespace services::recoveryd::btrfs
