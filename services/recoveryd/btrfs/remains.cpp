#include "recoveryd/btrfs/remains.h"

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

constexpr int kMaxPlaces = 4096;
constexpr int kMaxTrees = 100 * 1000;
constexpr quint32 kFormatMask = 0170000;
constexpr quint32 kFolder = 0040000;
constexpr quint32 kRegular = 0100000;

} // namespace

void Remains::setDevice(quint64 id)
{
    m_chunks.setDevice(id);
    m_isDeviceKnown = true;
}

void Remains::add(qint64 offset, const NodeView &node, bool isLive)
{
    if (m_places.size() < kMaxPlaces)
        m_places.append({node.address(), offset});
    if (!node.isLeaf())
        return;
    const quint64 owner = node.owner();
    if (owner == kChunkTree)
        addChunks(node);
    else if (owner == kDeviceTree)
        addDeviceExtents(node);
    else if (owner == kRootTree)
        addRoots(node);
    else if (owner == kChecksumTree)
        m_checksums.add(node, offset);
    else if (isFileTree(owner) || owner == kLogTree)
        addPieces(offset, node, isLive);
}

void Remains::addPieces(qint64 offset, const NodeView &leaf, bool isLive)
{
    forEachPiece(leaf, offset, [&](Piece &piece) {
        piece.isLive = isLive;
        const quint32 kind = piece.facts.mode & kFormatMask;
        if (piece.hasFacts)
            m_folders.addTime(piece.facts.transaction, piece.facts.changedMs);
        // A piece without facts may be the rest of a folder or of a file.
        if (piece.hasFacts ? kind == kFolder : !piece.names.isEmpty())
            m_folders.addFolder(piece);
        const bool isOfFile =
            piece.hasFacts ? kind == kRegular : !piece.names.isEmpty() || !piece.extents.isEmpty();
        if (!isOfFile)
            return;
        m_pieces.add(piece);
        if (m_treeSizes.size() < kMaxTrees)
            ++m_treeSizes[piece.tree];
    });
    addEntries(leaf);
}

void Remains::addEntries(const NodeView &leaf)
{
    constexpr int kEntrySize = 30; // without its name
    constexpr quint8 kToFolder = 2;
    for (int i = 0; i < leaf.count(); ++i) {
        const ItemView item = leaf.item(i);
        if (item.key.type != kFolderIndex || item.size < kEntrySize ||
            quint8(item.data[29]) != kToFolder)
            continue;
        const Key child = Key::at(item.data);
        const int length = le16(item.data + 27);
        if (child.type == kInodeItem && length > 0 && length <= item.size - kEntrySize)
            m_folders.addEntry(leaf.owner(), item.key.id, child.id,
                               QByteArray(item.data + kEntrySize, length), leaf.generation());
    }
}

void Remains::addRoots(const NodeView &leaf)
{
    constexpr int kIdAt = 247;
    constexpr int kOriginIdAt = 263;
    constexpr int kReferenceSize = 18; // without its name
    for (int i = 0; i < leaf.count(); ++i) {
        const ItemView item = leaf.item(i);
        if (item.key.type == kRootItem && item.size >= kOriginIdAt + 16 && isFileTree(item.key.id))
            m_folders.addIdentity(item.key.id, QByteArray(item.data + kIdAt, 16),
                                  QByteArray(item.data + kOriginIdAt, 16));
        if (item.key.type != kRootReference || item.size <= kReferenceSize)
            continue;
        const int length = le16(item.data + 16);
        if (length > 0 && length <= item.size - kReferenceSize)
            m_folders.addSubvolume(item.key.id, le64(item.data), item.key.offset,
                                   QByteArray(item.data + kReferenceSize, length),
                                   leaf.generation());
    }
}

void Remains::addChunks(const NodeView &leaf)
{
    for (int i = 0; i < leaf.count(); ++i) {
        const ItemView item = leaf.item(i);
        if (item.key.type == kChunkItem)
            m_chunks.add(item.key.offset, item.data, item.size);
    }
}

void Remains::addDeviceExtents(const NodeView &leaf)
{
    constexpr int kDeviceExtentSize = 48;
    for (int i = 0; i < leaf.count(); ++i) {
        const ItemView item = leaf.item(i);
        if (item.key.type == kDeviceExtent && item.size >= kDeviceExtentSize)
            m_chunks.addDeviceExtent(item.key.id, qint64(item.key.offset), le64(item.data + 16),
                                     qint64(le64(item.data + 24)));
    }
}

void Remains::findDevice()
{
    int best = 0;
    quint64 found = m_chunks.device();
    const QVector<quint64> devices = m_chunks.devices();
    for (quint64 device : devices) {
        m_chunks.setDevice(device);
        const int fitting =
            int(std::count_if(m_places.cbegin(), m_places.cend(), [this](const Place &place) {
                for (int copy = 0; copy < qMin(4, m_chunks.copies(place.address)); ++copy)
                    if (m_chunks.map(place.address, 1, copy).first().physical == place.offset)
                        return true;
                return false;
            }));
        if (fitting > best) {
            best = fitting;
            found = device;
        }
    }
    m_chunks.setDevice(found);
}

void Remains::finish()
{
    if (!m_isDeviceKnown)
        findDevice();
    m_pieces.finish();
    m_checksums.finish();
}

quint64 Remains::largestTree() const
{
    quint64 best = kMainTree;
    for (auto it = m_treeSizes.cbegin(); it != m_treeSizes.cend(); ++it)
        if (it.key() != kLogTree && *it > m_treeSizes.value(best))
            best = it.key();
    return best;
}

} // namespace services::recoveryd::btrfs
