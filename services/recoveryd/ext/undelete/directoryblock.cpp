#include "recoveryd/ext/undelete/directoryblock.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/crc32c.h"

#include <cstring>

namespace services::recoveryd::ext {

namespace {

constexpr int kHeader = 8;
constexpr int kTailSize = 12; ///< An entry without inode and name that holds the checksum.
constexpr quint8 kTailType = 0xDE;
constexpr quint8 kMaxType = 7;
constexpr int kInlineMapSize = 60;

/// The fields of an entry that may be none.
struct Header
{
    quint32 number;
    int length;
    int nameLength;
    quint8 type;

    Header(const Layout &layout, const char *at, int left)
        : number(qFromLittleEndian<quint32>(at))
        , length(qFromLittleEndian<quint16>(at + 4))
        , nameLength(quint8(at[6]))
        , type(quint8(at[7]))
    {
        // The whole of a 64 KiB block does not fit into the field.
        if (left >= 65536 && (length == 0xFFFF || length == 0))
            length = 65536;
        // Without the feature both bytes are the length; a name has 255 bytes at most.
        if (!layout.super().hasIncompatible(extfeature::kFileTypes))
            type = 0;
    }

    int used() const { return kHeader + ((nameLength + 3) & ~3); }
    bool isSound(const Layout &layout, int left) const
    {
        return length >= kHeader && length % 4 == 0 && length <= left &&
               nameLength <= length - kHeader && number <= layout.super().inodeCount &&
               (number == 0 || nameLength > 0);
    }
};

bool isName(const char *name, int length)
{
    return length > 0 && !std::memchr(name, 0, size_t(length)) &&
           !std::memchr(name, '/', size_t(length));
}

bool isDots(const char *name, int length)
{
    return (length == 1 && name[0] == '.') || (length == 2 && name[0] == '.' && name[1] == '.');
}

bool isTail(const char *at, int left)
{
    return left == kTailSize && qFromLittleEndian<quint32>(at) == 0 &&
           qFromLittleEndian<quint16>(at + 4) == kTailSize && at[6] == 0 &&
           quint8(at[7]) == kTailType;
}

void visitRemnants(const Layout &layout, const char *bytes, int from, int end,
                   const EntryVisit &visit)
{
    for (int at = from; at + kHeader + 4 <= end;) {
        const Header header(layout, bytes + at, end - at);
        const char *name = bytes + at + kHeader;
        if (header.number == 0 || !header.isSound(layout, end - at) || header.type > kMaxType ||
            header.used() > header.length || !isName(name, header.nameLength)) {
            at += 4;
            continue;
        }
        if (!isDots(name, header.nameLength))
            visit({header.number, header.type, true,
                   QByteArray::fromRawData(name, header.nameLength)});
        at += header.used();
    }
}

void visitStretch(const Layout &layout, const char *bytes, int size, const EntryVisit &visit)
{
    for (int at = 0; at + kHeader <= size;) {
        const Header header(layout, bytes + at, size - at);
        if (!header.isSound(layout, size - at) || isTail(bytes + at, size - at))
            return;
        const char *name = bytes + at + kHeader;
        if (header.number != 0 && isName(name, header.nameLength) &&
            !isDots(name, header.nameLength))
            visit({header.number, header.type, false,
                   QByteArray::fromRawData(name, header.nameLength)});
        const int used = header.number == 0 && header.nameLength == 0 ? kHeader : header.used();
        visitRemnants(layout, bytes, at + used, at + header.length, visit);
        at += header.length;
    }
}

} // namespace

bool parseDirectoryBlock(const Layout &layout, const QByteArray &block, DirectoryBlock *parsed)
{
    *parsed = DirectoryBlock();
    const char *bytes = block.constData();
    const int size = block.size();
    int entries = 0;
    for (int at = 0; at < size; ++entries) {
        if (size - at < kHeader)
            return false;
        if (isTail(bytes + at, size - at)) {
            const quint32 stored = qFromLittleEndian<quint32>(bytes + at + 8);
            parsed->seed =
                layout.super().hasMetadataChecksums() ? crc32cBefore(stored, bytes, at) : 0;
            break;
        }
        const Header header(layout, bytes + at, size - at);
        const char *name = bytes + at + kHeader;
        if (!header.isSound(layout, size - at) || header.type > kMaxType ||
            (header.number != 0 && !isName(name, header.nameLength)))
            return false;
        if (at == 0 && header.number == 0 && header.length == size)
            parsed->isIndex = true;
        if (at == 0 && header.number != 0 && header.nameLength == 1 && name[0] == '.')
            parsed->self = header.number;
        if (at == 12 && parsed->self != 0 && header.nameLength == 2 && name[0] == '.' &&
            name[1] == '.')
            parsed->parent = header.number;
        at += header.length;
    }
    if (parsed->self != 0 && parsed->parent == 0)
        return false;
    return !parsed->isIndex && entries > 0;
}

void visitEntries(const Layout &layout, const QByteArray &block, const EntryVisit &visit)
{
    visitStretch(layout, block.constData(), block.size(), visit);
}

void visitInlineEntries(const Layout &layout, const QByteArray &data, const EntryVisit &visit)
{
    // The parent's number, the entries in the map's place, then those in the attribute.
    const int first = qMin(kInlineMapSize, data.size());
    if (first > 4)
        visitStretch(layout, data.constData() + 4, first - 4, visit);
    if (data.size() > first)
        visitStretch(layout, data.constData() + first, data.size() - first, visit);
}

} // namespace services::recoveryd::ext
