#include "recoveryd/xfs/directory.h"

#include <cstring>

namespace services::recoveryd::xfs {

namespace {

constexpr quint32 kOldBlock = 0x58443242U; // XD2B
constexpr quint32 kOldData = 0x58443244U;  // XD2D
constexpr quint32 kBlock = 0x58444233U;    // XDB3
constexpr quint32 kData = 0x58444433U;     // XDD3
constexpr quint16 kFreeTag = 0xFFFF;
constexpr int kAlignment = 8;
constexpr int kNameAt = 9; ///< In an entry: number, length of the name, name.
constexpr int kTagSize = 2;
constexpr quint8 kMaxType = 8;

bool isName(const char *name, int length)
{
    return length > 0 && !std::memchr(name, '/', size_t(length)) &&
           !std::memchr(name, '\0', size_t(length));
}

/// One stretch of a block while it is read.
class EntryWalk
{
public:
    EntryWalk(const View &stretch, int base, const Geometry &geometry, const TakesEntry &take)
        : m_view(stretch)
        , m_base(base)
        , m_geometry(geometry)
        , m_take(take)
    {}

    void run(int from, int end)
    {
        for (int at = from; at + kAlignment <= end;) {
            const int span = freeSpan(at, end);
            if (span > 0) {
                takeRemains(at, at + span);
                at += span;
                continue;
            }
            const int size = entrySize(at, end);
            const bool isEntry = size > 0 && m_view.u16(at + size - kTagSize) == m_base + at;
            if (isEntry && takeAt(at, false, true))
                at += size;
            else
                at += kAlignment;
        }
    }

private:
    int freeSpan(int at, int end) const
    {
        const int length = m_view.u16(at + 2);
        if (m_view.u16(at) != kFreeTag || length < 16 || length % kAlignment != 0)
            return 0;
        // A stretch may end inside of it.
        if (length > end - at)
            return end - at;
        return m_view.u16(at + length - kTagSize) == m_base + at ? length : 0;
    }

    int entrySize(int at, int end) const
    {
        const int name = m_view.u8(at + 8);
        const int used = kNameAt + name + (m_geometry.hasFileTypes ? 1 : 0) + kTagSize;
        const int size = (used + kAlignment - 1) / kAlignment * kAlignment;
        return name > 0 && size <= end - at && m_view.has(at, size) ? size : 0;
    }

    bool takeAt(int at, bool isFreed, bool isChildWhole)
    {
        const int length = m_view.u8(at + 8);
        DirectoryEntry entry;
        entry.child = isChildWhole ? m_view.u64(at) : m_view.u32(at + 4);
        entry.type = m_geometry.hasFileTypes ? m_view.u8(at + kNameAt + length) : quint8(0);
        entry.isFreed = isFreed;
        entry.isChildWhole = isChildWhole;
        if (entry.type > kMaxType || entry.child == 0 || !isName(m_view.at(at + kNameAt), length) ||
            (isChildWhole && m_geometry.offsetOfInode(entry.child) < 0))
            return false;
        entry.name = QByteArray(m_view.at(at + kNameAt), length);
        m_take(entry);
        return true;
    }

    /// A freed entry keeps all but the first four bytes, and one that was joined with the free
    /// space before it even those. The place at the end of the space is that of its start.
    void takeRemains(int from, int end)
    {
        for (int at = from; at + 2 * kAlignment <= end;) {
            const int size = entrySize(at, end);
            const int tag = size > 0 ? m_view.u16(at + size - kTagSize) : -1;
            const bool isSound =
                tag == m_base + at ||
                (tag >= 0 && tag < m_base + at && tag % kAlignment == 0 && tag >= m_base + from);
            const bool isWhole = m_view.u16(at) != kFreeTag;
            at += isSound && takeAt(at, true, isWhole) ? size : kAlignment;
        }
    }

    const View &m_view;
    int m_base;
    const Geometry &m_geometry;
    const TakesEntry &m_take;
};

} // namespace

DirectoryHead directoryHead(const View &block)
{
    DirectoryHead head;
    const quint32 magic = block.u32(0);
    head.hasLeaf = magic == kOldBlock || magic == kBlock;
    head.isV5 = magic == kBlock || magic == kData;
    if (head.isV5) {
        head.size = 64;
        head.lsn = block.u64(16);
        head.uuid = block.bytes(24, 16);
        head.owner = block.u64(40);
    } else if (magic == kOldBlock || magic == kOldData) {
        head.size = 16;
    }
    return head;
}

void forEachEntry(const View &stretch, int at, const Geometry &geometry, const TakesEntry &take)
{
    const DirectoryHead head = at == 0 ? directoryHead(stretch) : DirectoryHead();
    int end = stretch.size();
    if (head.hasLeaf && end == geometry.directoryBlockSize) {
        // A table of 8 bytes an entry, then the number of its entries and of unused ones.
        const quint32 entries = stretch.u32(end - 8);
        const int most = (end - 8 - head.size) / 8;
        end -= 8 + 8 * int(entries <= quint32(most) ? entries : 0);
    }
    const int from = (at + head.size + kAlignment - 1) / kAlignment * kAlignment - at;
    EntryWalk(stretch, at, geometry, take).run(from, end);
}

void forEachShortEntry(const View &fork, quint64 size, const Geometry &geometry,
                       const TakesEntry &take)
{
    const bool isWide = fork.u8(1) != 0;
    const int numberSize = isWide ? 8 : 4;
    const int typeSize = geometry.hasFileTypes ? 1 : 0;
    const auto number = [&](int at) {
        return isWide ? fork.u64(at) & 0x00FFFFFFFFFFFFFFULL : quint64(fork.u32(at));
    };
    const quint64 parent = number(2);
    if (geometry.offsetOfInode(parent) >= 0 && parent != 0 && size > 0)
        take({parent, QByteArrayLiteral(".."), 2, false, true});
    const int used = int(qMin(size, quint64(fork.size())));
    int lastPlace = 0;
    for (int at = 2 + numberSize; at + 3 < fork.size();) {
        const bool isFreed = at >= used;
        const int length = fork.u8(at);
        const int end = at + 3 + length + typeSize + numberSize;
        DirectoryEntry entry;
        entry.child = number(at + 3 + length + typeSize);
        entry.type = typeSize > 0 ? fork.u8(at + 3 + length) : quint8(0);
        entry.isFreed = isFreed;
        const int place = fork.u16(at + 1);
        const bool isSound = fork.has(at, end - at) && place % kAlignment == 0 && place > 0 &&
                             isName(fork.at(at + 3), length) && entry.type <= kMaxType &&
                             entry.child != 0 && geometry.offsetOfInode(entry.child) >= 0 &&
                             (isFreed || place > lastPlace);
        if (!isSound) {
            // Behind the directory's end an entry may begin at any byte.
            at = isFreed ? at + 1 : used;
            continue;
        }
        lastPlace = place;
        entry.name = QByteArray(fork.at(at + 3), length);
        take(entry);
        at = end;
    }
}

} // namespace services::recoveryd::xfs
