#pragma once

#include "recoveryd/ext/undelete/layout.h"

#include <array>

namespace services::recoveryd::ext {

constexpr quint32 kRootDirectory = 2;
constexpr quint32 kJournalInode = 8;

/// Place in time: the number of a transaction, counted so that a greater one is always the newer.
using Order = quint32;
constexpr Order kAnyTime = 0;             ///< Unknown.
constexpr Order kNow = 0xFFFFFFFF;        ///< As the volume stands.
constexpr Order kSequenceBase = 1u << 31; ///< The order of the journal's next transaction.

/// What an inode says at one time. 104 bytes: many of them are held.
struct Inode
{
    qint64 size = 0;
    qint64 modifiedMs = 0;
    quint64 blocks = 0; ///< In units of 512 bytes, or of blocks with kHugeFile.
    quint32 generation = 0;
    qint32 birth = 0;         ///< Low bits of the seconds; 0 if it is not kept.
    quint32 deletionTime = 0; ///< Seconds, or the next inode of the orphan list.
    quint32 flags = 0;
    quint16 mode = 0;
    quint16 links = 0;
    bool hasAttributeBlock = false;
    std::array<char, 60> map = {}; ///< Extent root, block pointers, or the first bytes themselves.

    enum Flag : quint32 {
        Encrypted = 0x800,
        HashIndex = 0x1000,
        JournalData = 0x4000,
        HugeFile = 0x40000,
        Extents = 0x80000,
        InlineData = 0x10000000,
        CaseFolded = 0x40000000,
    };

    bool is(Flag flag) const { return (flags & flag) != 0; }
    bool isRegular() const { return (mode & 0xF000) == 0x8000; }
    bool isDirectory() const { return (mode & 0xF000) == 0x4000; }
    /// Some type that a mode can have.
    bool hasKnownType() const;
    /// The map names at least one block, or the data are inline.
    bool hasMap() const;
    QByteArray mapBytes() const { return QByteArray(map.data(), int(map.size())); }
    /// The number of the directory entries' type for this mode; 0 if there is none.
    quint8 entryType() const;
};

/// Reads inode `slot` of a block of an inode table. False for an empty slot, and for what cannot be
/// an inode.
[[nodiscard]] bool parseInode(const Layout &layout, const QByteArray &block, quint32 slot,
                              Inode *inode);

/// Whether the checksum in the inode fits; true if the volume keeps none.
bool hasRightChecksum(const Layout &layout, const QByteArray &block, quint32 slot, quint32 number);
/// The number that the inode has by its checksum; 0 if the checksum does not tell, or tells a
/// number that cannot be at the slot.
quint32 numberByChecksum(const Layout &layout, const QByteArray &block, quint32 slot);
/// The start value of all checksums of the file system that wrote this inode.
quint32 seedByInode(const Layout &layout, const QByteArray &block, quint32 slot, quint32 number);

/// The file's bytes that stand in the inode itself, up to its size; for InlineData.
QByteArray inlineDataOf(const Layout &layout, const QByteArray &block, quint32 slot);

} // namespace services::recoveryd::ext
