#include "recoveryd/btrfs/piecestore.h"

#include <algorithm>

namespace services::recoveryd::btrfs {

namespace {

constexpr int kUnit = 4;
constexpr int kBlock = 4 * 1024 * 1024;
constexpr int kMaxText = 2 * 1024 * 1024; ///< Of one piece.
constexpr std::size_t kMaxBlocks = 256;
constexpr int kMaxRecords = 16 * 1000 * 1000;
constexpr int kMaxPiecesOfInode = 100 * 1000;

// Flags of a piece as text.
constexpr quint64 kHasFacts = 1;
constexpr quint64 kOpenBefore = 2;
constexpr quint64 kOpenBehind = 4;

/// Appends numbers in as few bytes as they need.
class Writer
{
public:
    explicit Writer(QByteArray *to)
        : m_to(to)
    {}
    void number(quint64 value)
    {
        for (; value >= 0x80; value >>= 7)
            m_to->append(char(value | 0x80));
        m_to->append(char(value));
    }
    void signedNumber(qint64 value) { number((quint64(value) << 1) ^ quint64(value >> 63)); }
    void bytes(const QByteArray &value)
    {
        number(quint64(value.size()));
        m_to->append(value);
    }

private:
    QByteArray *m_to;
};

class Reader
{
public:
    explicit Reader(const char *from)
        : m_from(from)
    {}
    quint64 number()
    {
        quint64 value = 0;
        int shift = 0;
        for (; quint8(*m_from) >= 0x80; shift += 7)
            value |= quint64(*m_from++ & 0x7F) << shift;
        return value | quint64(*m_from++) << shift;
    }
    qint64 signedNumber()
    {
        const quint64 value = number();
        return qint64(value >> 1) ^ -qint64(value & 1);
    }
    QByteArray bytes()
    {
        const int length = int(number());
        const QByteArray value(m_from, length);
        m_from += length;
        return value;
    }

private:
    const char *m_from;
};

void writeFacts(const InodeFacts &facts, Writer *to)
{
    to->number(facts.generation);
    to->number(facts.transaction);
    to->number(facts.size);
    to->number(facts.storedBytes);
    to->number(facts.links);
    to->number(facts.mode);
    to->signedNumber(facts.modifiedMs);
    to->signedNumber(facts.changedMs);
}

InodeFacts readFacts(Reader *from)
{
    InodeFacts facts;
    facts.generation = from->number();
    facts.transaction = from->number();
    facts.size = from->number();
    facts.storedBytes = from->number();
    facts.links = quint32(from->number());
    facts.mode = quint32(from->number());
    facts.modifiedMs = from->signedNumber();
    facts.changedMs = from->signedNumber();
    return facts;
}

void writeExtent(const ExtentItem &extent, Writer *to)
{
    to->number(quint64(extent.kind) | (extent.isReadable ? 4 : 0) |
               quint64(extent.compression) << 3);
    to->number(extent.offset);
    to->number(extent.generation);
    to->number(extent.unpacked);
    to->number(extent.length);
    if (extent.kind == ExtentItem::Kind::Inline) {
        to->number(quint64(extent.inlineLength));
        to->number(extent.inlineHash);
        return;
    }
    to->number(extent.address);
    to->number(extent.storedLength);
    to->number(extent.skip);
}

ExtentItem readExtent(Reader *from)
{
    ExtentItem extent;
    const quint64 head = from->number();
    extent.kind = ExtentItem::Kind(head & 3);
    extent.isReadable = (head & 4) != 0;
    extent.compression = quint8(head >> 3);
    extent.offset = from->number();
    extent.generation = from->number();
    extent.unpacked = from->number();
    extent.length = from->number();
    if (extent.kind == ExtentItem::Kind::Inline) {
        extent.inlineLength = int(from->number());
        extent.inlineHash = quint32(from->number());
        return extent;
    }
    extent.address = from->number();
    extent.storedLength = from->number();
    extent.skip = from->number();
    return extent;
}

/// All that makes two pieces the same. Where the bytes of inline extents stand follows behind it.
void encode(const Piece &piece, QByteArray *to)
{
    to->resize(0);
    Writer writer(to);
    writer.number((piece.hasFacts ? kHasFacts : 0) | (piece.isOpenBefore ? kOpenBefore : 0) |
                  (piece.isOpenBehind ? kOpenBehind : 0));
    if (piece.hasFacts)
        writeFacts(piece.facts, &writer);
    writer.number(quint64(piece.names.size()));
    for (const Reference &name : piece.names) {
        writer.number(name.folder);
        writer.bytes(name.name);
    }
    writer.number(quint64(piece.extents.size()));
    for (const ExtentItem &extent : piece.extents)
        writeExtent(extent, &writer);
}

} // namespace

quint32 PieceStore::treeIndex(quint64 tree)
{
    const auto known = m_treeIndex.constFind(tree);
    if (known != m_treeIndex.constEnd())
        return *known;
    m_trees.push_back(tree);
    return *m_treeIndex.insert(tree, quint32(m_trees.size() - 1));
}

const char *PieceStore::text(quint32 at) const
{
    const quint64 place = quint64(at) * kUnit;
    return m_text[std::size_t(place / kBlock)].constData() + place % kBlock;
}

bool PieceStore::isTextAt(quint32 at, const QByteArray &text) const
{
    const quint64 place = quint64(at) * kUnit;
    const QByteArray &block = m_text[std::size_t(place / kBlock)];
    const int start = int(place % kBlock);
    return text.size() <= block.size() - start &&
           std::memcmp(block.constData() + start, text.constData(), std::size_t(text.size())) == 0;
}

quint32 PieceStore::keep(const QByteArray &text)
{
    if (m_text.empty() || m_text.back().size() + text.size() + kUnit > kBlock) {
        m_text.emplace_back();
        m_text.back().reserve(kBlock);
    }
    QByteArray &block = m_text.back();
    block.append((kUnit - block.size() % kUnit) % kUnit, '\0');
    const quint64 place = quint64(m_text.size() - 1) * kBlock + quint64(block.size());
    block.append(text);
    return quint32(place / kUnit);
}

void PieceStore::add(const Piece &piece)
{
    encode(piece, &m_buffer);
    const quint32 tree = treeIndex(piece.tree);
    const quint32 hash = quint32(qHash(m_buffer));
    const quint64 key = quint64(hash) << 32 ^ piece.inode * 0x9E3779B97F4A7C15u ^ tree;
    bool isKnown = false;
    m_index.find(key, [&](int number) {
        Record &record = m_records[std::size_t(number - 1)];
        if (record.hash != hash || record.inode != piece.inode || record.tree != tree ||
            !isTextAt(record.at, m_buffer))
            return false;
        record.firstGeneration = qMin(record.firstGeneration, piece.firstGeneration);
        record.lastGeneration = qMax(record.lastGeneration, piece.lastGeneration);
        record.isLive = record.isLive || piece.isLive;
        return isKnown = true;
    });
    if (isKnown || int(m_records.size()) >= kMaxRecords || m_text.size() >= kMaxBlocks)
        return;
    Writer writer(&m_buffer);
    for (const ExtentItem &extent : piece.extents)
        if (extent.kind == ExtentItem::Kind::Inline)
            writer.number(quint64(extent.inlineAt));
    if (m_buffer.size() > kMaxText)
        return;
    Record record;
    record.inode = piece.inode;
    record.firstGeneration = piece.firstGeneration;
    record.lastGeneration = piece.lastGeneration;
    record.tree = tree;
    record.at = keep(m_buffer);
    record.hash = hash;
    record.isLive = piece.isLive;
    m_records.push_back(record);
    m_index.insert(key, int(m_records.size()));
}

void PieceStore::finish()
{
    m_index = HashIndex();
    std::sort(m_records.begin(), m_records.end(), [](const Record &a, const Record &b) {
        if (a.inode != b.inode)
            return a.inode < b.inode;
        return a.tree != b.tree ? a.tree < b.tree : a.lastGeneration > b.lastGeneration;
    });
}

Piece PieceStore::decoded(const Record &record) const
{
    Piece piece;
    piece.inode = record.inode;
    piece.tree = m_trees[record.tree];
    piece.isFromLog = piece.tree == kLogTree;
    piece.firstGeneration = record.firstGeneration;
    piece.lastGeneration = record.lastGeneration;
    piece.isLive = record.isLive;
    Reader reader(text(record.at));
    const quint64 flags = reader.number();
    piece.hasFacts = (flags & kHasFacts) != 0;
    piece.isOpenBefore = (flags & kOpenBefore) != 0;
    piece.isOpenBehind = (flags & kOpenBehind) != 0;
    if (piece.hasFacts)
        piece.facts = readFacts(&reader);
    const int names = int(reader.number());
    for (int i = 0; i < names; ++i) {
        const quint64 folder = reader.number();
        piece.names.append({folder, reader.bytes()});
    }
    const int extents = int(reader.number());
    for (int i = 0; i < extents; ++i)
        piece.extents.append(readExtent(&reader));
    for (ExtentItem &extent : piece.extents)
        if (extent.kind == ExtentItem::Kind::Inline)
            extent.inlineAt = qint64(reader.number());
    return piece;
}

bool PieceStore::forEachInode(const std::function<bool(QVector<Piece> &pieces)> &visit) const
{
    QVector<Piece> pieces;
    for (std::size_t i = 0; i < m_records.size();) {
        const quint64 inode = m_records[i].inode;
        pieces.clear();
        for (; i < m_records.size() && m_records[i].inode == inode; ++i)
            if (pieces.size() < kMaxPiecesOfInode)
                pieces.append(decoded(m_records[i]));
        if (!visit(pieces))
            return false;
    }
    return true;
}

} // namespace services::recoveryd::btrfs
