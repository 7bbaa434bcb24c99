#pragma once

#include "recoveryd/btrfs/piece.h"
#include "recoveryd/scan/hashindex.h"

#include <QHash>

#include <functional>
#include <vector>

namespace services::recoveryd::btrfs {

/// Keeps the pieces of all inodes of one file system in few bytes: about 100 for a small file. The
/// same piece in leaves of several generations is kept once. One thread.
class PieceStore
{
public:
    void add(const Piece &piece);
    /// Sorts; to be called once, behind the last add().
    void finish();

    /// Calls `visit` with all pieces of an inode, of all subvolumes that have its number; within a
    /// subvolume those of the newest leaves first. Until it returns false; then returns false.
    bool forEachInode(const std::function<bool(QVector<Piece> &pieces)> &visit) const;

private:
    struct Record
    {
        quint64 inode = 0;
        quint64 firstGeneration = 0;
        quint64 lastGeneration = 0;
        quint32 tree = 0; ///< Index in m_trees.
        quint32 at = 0;   ///< Index in the text, in kUnit bytes.
        quint32 hash = 0;
        bool isLive = false;
    };

    quint32 treeIndex(quint64 tree);
    const char *text(quint32 at) const;
    bool isTextAt(quint32 at, const QByteArray &text) const;
    quint32 keep(const QByteArray &text);
    Piece decoded(const Record &record) const;

    std::vector<Record> m_records;
    std::vector<QByteArray> m_text;
    std::vector<quint64> m_trees;
    QHash<quint64, quint32> m_treeIndex;
    HashIndex m_index;
    QByteArray m_buffer;
};

} // namespace services::recoveryd::btrfs
