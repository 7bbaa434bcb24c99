#include "recoveryd/xfs/xfsvolume.h"

#include "recoveryd/xfs/logitems.h"

namespace services::recoveryd::xfs {

namespace {

constexpr quint32 kAgFreeMagic = 0x58414746U;  // XAGF
constexpr quint32 kAgInodeMagic = 0x58414749U; // XAGI
constexpr int kMaxLevels = 12;
constexpr int kMaxStructure = 1024 * 1024;
constexpr quint32 kNoBlock = 0xFFFFFFFFU;

/// Pieces of the log that a crash left are kept up to this number, of 128 bytes.
constexpr std::size_t kMaxPending = 500000;
constexpr int kPiece = 128;

int treeHeader(bool isV5)
{
    return isV5 ? 56 : 16;
}

InodeChunk chunkOf(const View &record, const Geometry &geometry, quint32 ag)
{
    constexpr int kInodesPerHole = 4; // that one bit of the mask stands for
    InodeChunk chunk;
    chunk.first = geometry.inodeNumber(ag, record.u32(0));
    chunk.free = record.u64(8);
    const quint16 holes = geometry.hasSparseChunks ? record.u16(4) : quint16(0);
    for (int i = 0; i < 16; ++i)
        if ((holes >> i & 1) != 0)
            chunk.missing |= quint64(0xF) << (kInodesPerHole * i);
    return chunk;
}

} // namespace

XfsVolume::XfsVolume(const MediaReader &media)
    : m_media(media)
{}

bool XfsVolume::open()
{
    m_isOpen = findGeometry(m_media, &m_geometry);
    if (m_isOpen)
        readLog();
    return m_isOpen;
}

void XfsVolume::readLog()
{
    const Log log(m_media, m_geometry);
    const Log::State state = log.state();
    m_isLogClean = state.isClean;
    m_logTail = state.tail;
    if (m_isLogClean)
        return;
    LogItemHandlers handlers;
    handlers.buffer = [this](const LoggedBuffer &item) {
        if (item.holdsInodes)
            return; // A single field of each; the inodes have items of their own.
        if (item.isCancelled)
            m_pending.erase(m_pending.lower_bound(item.offset),
                            m_pending.lower_bound(item.offset + item.length));
        for (const LoggedBuffer::Piece &piece : item.pieces)
            for (int i = 0; i < piece.bytes.size() && m_pending.size() < kMaxPending; i += kPiece)
                m_pending[item.offset + piece.at + i] = piece.bytes.mid(i, kPiece);
    };
    log.readPending(state.tail, [&handlers](const LogTransaction &transaction) {
        forEachItem(transaction, handlers);
    });
}

QByteArray XfsVolume::read(qint64 offset, int length) const
{
    if (offset < 0 || length <= 0 || length > kMaxStructure)
        return QByteArray();
    QByteArray bytes = m_media.read(offset, length);
    const auto end = m_pending.lower_bound(offset + length);
    for (auto it = m_pending.lower_bound(offset); it != end; ++it) {
        const int at = int(it->first - offset);
        bytes.replace(at, qMin(it->second.size(), length - at),
                      it->second.left(qMin(it->second.size(), length - at)));
    }
    return bytes;
}

QByteArray XfsVolume::treeBlock(quint32 ag, quint32 block, const Tree &tree) const
{
    const qint64 offset = m_geometry.offsetInAg(ag, block);
    if (offset <= 0)
        return QByteArray();
    const QByteArray bytes = read(offset, int(m_geometry.blockSize));
    const bool isTree = View(bytes).u32(0) == (m_geometry.isV5 ? tree.magicV5 : tree.magic);
    return isTree ? bytes : QByteArray();
}

bool XfsVolume::walkLeaves(quint32 ag, quint32 root, const Tree &tree, const TakesLeaf &take) const
{
    const int header = treeHeader(m_geometry.isV5);
    quint32 block = root;
    QByteArray bytes = treeBlock(ag, block, tree);
    for (int level = kMaxLevels; level > 0 && View(bytes).u16(4) > 0; --level) {
        const int room = (bytes.size() - header) / (tree.keySize + 4);
        block = View(bytes).u32(header + room * tree.keySize);
        bytes = treeBlock(ag, block, tree);
    }
    // The leaves are chained; there cannot be more of them than blocks.
    for (quint32 seen = 0; seen < m_geometry.agBlocks; ++seen) {
        const View view(bytes);
        const int count = view.u16(6);
        if (bytes.isEmpty() || view.u16(4) != 0 ||
            count > (bytes.size() - header) / tree.recordSize || !take(view.from(header), count))
            return false;
        const quint32 next = view.u32(12);
        if (next == kNoBlock)
            return true;
        bytes = treeBlock(ag, next, tree);
    }
    return false;
}

bool XfsVolume::forEachChunk(quint32 ag, const TakesChunk &take) const
{
    const int sector = int(m_geometry.sectorSize);
    const QByteArray head = read(m_geometry.agStart(ag) + 2 * sector, sector);
    const View view(head);
    if (view.u32(0) != kAgInodeMagic || view.u32(8) != ag)
        return false;
    quint64 next = 0;
    const Tree tree = {0x49414254U, 0x49414233U, 4, 16}; // IABT, IAB3
    return walkLeaves(ag, view.u32(20), tree, [&](const View &records, int count) {
        for (int i = 0; i < count; ++i) {
            const InodeChunk chunk = chunkOf(records.from(16 * i), m_geometry, ag);
            if (chunk.first < next || m_geometry.offsetOfInode(chunk.first) < 0 || !take(chunk))
                return false;
            next = chunk.first + 64;
        }
        return true;
    });
}

bool XfsVolume::forEachFree(quint32 ag, const TakesFree &take) const
{
    const int sector = int(m_geometry.sectorSize);
    const QByteArray head = read(m_geometry.agStart(ag) + sector, sector);
    const View view(head);
    if (view.u32(0) != kAgFreeMagic || view.u32(8) != ag)
        return false;
    quint32 next = 0;
    const quint32 blocks = m_geometry.blocksOf(ag);
    const Tree tree = {0x41425442U, 0x41423342U, 8, 8}; // ABTB, AB3B
    return walkLeaves(ag, view.u32(16), tree, [&](const View &records, int count) {
        for (int i = 0; i < count; ++i) {
            const quint32 block = records.u32(8 * i);
            const quint32 length = records.u32(8 * i + 4);
            if (block < next || block >= blocks || length == 0 || length > blocks - block)
                return false;
            take(block, length);
            next = block + length;
        }
        return true;
    });
}

} // namespace services::recoveryd::xfs
