#pragma once

#include "recoveryd/ext/undelete/layout.h"

#include <functional>

namespace services::recoveryd::ext {

/// An entry of a directory, as the bytes on disk have it.
struct Entry
{
    quint32 number = 0;
    quint8 type = 0; ///< 0: not known.
    /// It stands in the unused end of another entry: removed, or moved by a split of its block.
    bool isRemnant = false;
    QByteArray name; ///< Borrows the block's bytes.
};

/// What a block of a directory says beside its entries.
struct DirectoryBlock
{
    quint32 self = 0;   ///< By its "." entry, which only the first block of a directory has.
    quint32 parent = 0; ///< By "..".
    /// The start value of the directory's checksums, which tells whose block this is; 0 if it has
    /// no checksum.
    quint32 seed = 0;
    bool isIndex = false; ///< A node of the hash index: no entries.
};

/// Whether a block has the structure of a directory's block throughout, and what it says of itself.
[[nodiscard]] bool parseDirectoryBlock(const Layout &layout, const QByteArray &block,
                                       DirectoryBlock *parsed);

using EntryVisit = std::function<void(const Entry &entry)>;

/// Visits the entries of a block for which parseDirectoryBlock() is true, without "." and "..", and
/// what is left of removed ones. Removed ones without an inode number are left out.
void visitEntries(const Layout &layout, const QByteArray &block, const EntryVisit &visit);
/// The same for the data of a directory that stands in its inode.
void visitInlineEntries(const Layout &layout, const QByteArray &data, const EntryVisit &visit);

} // namespace services::recoveryd::ext
