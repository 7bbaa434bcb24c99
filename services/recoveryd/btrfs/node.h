#pragma once

#include "recoveryd/btrfs/checksum.h"
#include "recoveryd/btrfs/layout.h"

namespace services::recoveryd::btrfs {

/// What all nodes of one file system have in common.
struct NodeFormat
{
    FsId id = {};
    int nodeSize = 16384;
    int sectorSize = 4096;
    ChecksumKind checksum = ChecksumKind::Crc32c;
};

struct ItemView
{
    Key key;
    const char *data = nullptr;
    int size = 0;
};

/// A checked node in memory that is owned elsewhere. A leaf has items, an inner node pointers.
class NodeView
{
public:
    NodeView() = default;
    explicit NodeView(const char *bytes, int size)
        : m_bytes(bytes)
        , m_size(size)
    {}

    const char *bytes() const { return m_bytes; }
    int size() const { return m_size; }
    FsId id() const { return fsIdAt(m_bytes + 32); }
    quint64 address() const { return le64(m_bytes + 48); }
    quint64 generation() const { return le64(m_bytes + 80); }
    quint64 owner() const { return le64(m_bytes + 88); }
    int count() const { return int(le32(m_bytes + 96)); }
    int level() const { return quint8(m_bytes[100]); }
    bool isLeaf() const { return level() == 0; }

    /// Of a leaf, in ascending order of the keys.
    ItemView item(int index) const
    {
        const char *const head = m_bytes + kHeaderSize + index * kItemSize;
        return {Key::at(head), m_bytes + kHeaderSize + le32(head + 17), int(le32(head + 21))};
    }
    struct Pointer
    {
        quint64 address = 0;
        quint64 generation = 0;
    };
    Pointer pointer(int index) const
    {
        const char *const at = m_bytes + kHeaderSize + index * kPointerSize;
        return {le64(at + 17), le64(at + 25)};
    }

    /// Whether counts, places and keys fit into the node. Nothing above may be asked before.
    bool isSound() const;

private:
    const char *m_bytes = nullptr;
    int m_size = 0;
};

/// Whether the first bytes of a block can be a node header of any file system. Cheap.
bool looksLikeNode(const char *header);
/// Whether a node of this file system stands at `bytes`, which hold `format.nodeSize` bytes.
bool isNode(const char *bytes, const NodeFormat &format);
/// Finds out the format by a block that looks like a node and is followed by `left` bytes in all.
/// False if it is none after all.
[[nodiscard]] bool deriveFormat(const char *bytes, qint64 left, NodeFormat *format);

} // namespace services::recoveryd::btrfs
