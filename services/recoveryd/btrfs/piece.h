#pragma once

#include "recoveryd/btrfs/node.h"

#include <QByteArray>
#include <QVector>

namespace services::recoveryd::btrfs {

struct InodeFacts
{
    quint64 generation = 0;  ///< Of its creation: never two of one number have the same.
    quint64 transaction = 0; ///< Of its last change.
    quint64 size = 0;
    quint64 storedBytes = 0; ///< Of its extents, as plain bytes; holes do not count.
    quint32 links = 0;
    quint32 mode = 0;
    qint64 modifiedMs = 0;
    qint64 changedMs = 0;
};

/// One name of an inode.
struct Reference
{
    quint64 folder = 0; ///< Inode number.
    QByteArray name;
};

struct ExtentItem
{
    enum class Kind : quint8 { Inline = 0, Regular = 1, Preallocated = 2 };

    quint64 offset = 0; ///< In the file.
    quint64 generation = 0;
    quint64 unpacked = 0; ///< Bytes of the whole extent, decompressed.
    Kind kind = Kind::Regular;
    quint8 compression = 0; ///< 0: none, 1: zlib, 2: LZO, 3: zstd.
    bool isReadable = true; ///< Neither encrypted nor encoded in a way not known.
    // Of one in the data area:
    quint64 address = 0; ///< 0: a hole.
    quint64 storedLength = 0;
    quint64 skip = 0;   ///< Of the first byte of the file in the extent, decompressed.
    quint64 length = 0; ///< Bytes of the file.
    // Of an inline one:
    qint64 inlineAt = 0; ///< On the device.
    int inlineLength = 0;
    quint32 inlineHash = 0; ///< Of its bytes.

    bool isStored() const { return kind != Kind::Inline && address != 0; }
};

/// What one leaf holds of one inode: often all of it, at a leaf's ends a part.
struct Piece
{
    quint64 inode = 0;
    quint64 tree = 0; ///< The owner of the leaf.
    bool hasFacts = false;
    InodeFacts facts;
    QVector<Reference> names;
    QVector<ExtentItem> extents; ///< Ascending by offset.
    bool isFromLog = false;      ///< It has only what changed since the last transaction.
    /// More of the inode may stand in the leaf before or behind.
    bool isOpenBefore = false;
    bool isOpenBehind = false;
    // The same items stood in leaves of these generations.
    quint64 firstGeneration = 0;
    quint64 lastGeneration = 0;
    bool isLive = false; ///< One of these leaves belongs to the file system as it is now.
};

/// Calls `visit` with a Piece for each inode of a leaf of a subvolume. `offset`: where the leaf
/// stands on the device.
template <typename Visit>
void forEachPiece(const NodeView &leaf, qint64 offset, Visit visit);

/// Reads one item of an inode into its piece; others are left out.
void readInodeItem(const ItemView &item, const NodeView &leaf, qint64 offset, Piece *piece);

template <typename Visit>
void forEachPiece(const NodeView &leaf, qint64 offset, Visit visit)
{
    for (int i = 0; i < leaf.count();) {
        Piece piece;
        piece.inode = leaf.item(i).key.id;
        piece.tree = leaf.owner();
        piece.isFromLog = leaf.owner() == kLogTree;
        piece.firstGeneration = piece.lastGeneration = leaf.generation();
        piece.isOpenBefore = i == 0 && leaf.item(i).key.type != kInodeItem;
        for (; i < leaf.count() && leaf.item(i).key.id == piece.inode; ++i)
            readInodeItem(leaf.item(i), leaf, offset, &piece);
        piece.isOpenBehind = i == leaf.count();
        visit(piece);
    }
}

} // namespace services::recoveryd::btrfs
