#pragma once

#include "recoveryd/btrfs/piece.h"
#include "recoveryd/scan/finding.h"

#include <QHash>

#include <map>

namespace services::recoveryd::btrfs {

/// What is known about the folder of a file.
struct FolderPath
{
    QByteArray folder;
    Finding::Folder knowledge = Finding::Folder::Partial;
};

/// The folders and subvolumes of one file system at all times, and when transactions took place.
/// One thread.
class FolderBook
{
public:
    /// A piece of a directory, or one that may belong to a directory.
    void addFolder(const Piece &piece);
    /// An entry of a directory that leads to another one.
    void addEntry(quint64 tree, quint64 parent, quint64 child, const QByteArray &name,
                  quint64 generation);
    /// The subvolume `child` has a name in a directory of the subvolume `parent`.
    void addSubvolume(quint64 parent, quint64 folder, quint64 child, const QByteArray &name,
                      quint64 generation);
    /// `id` of the subvolume, and that of the one it is a snapshot of; 16 bytes each.
    void addIdentity(quint64 tree, const QByteArray &id, const QByteArray &originId);
    /// Something changed in a transaction at that time.
    void addTime(quint64 generation, qint64 ms);

    /// The path of a directory as it was in a transaction.
    FolderPath pathOf(quint64 tree, quint64 inode, quint64 generation) const;
    /// When a file was deleted that still was in the directory in `generation`, as far as that can
    /// be told: when the directory changed next, or when the next known transaction took place.
    qint64 deletionTime(quint64 tree, quint64 folder, quint64 generation) const;

private:
    struct Version
    {
        quint64 tree = 0;
        quint64 parent = 0;
        QByteArray name;
        quint64 first = 0; ///< Generations in which it was seen.
        quint64 last = 0;
        bool isEntry = false;
    };
    struct Change
    {
        quint64 tree = 0;
        quint64 generation = 0;
        qint64 ms = 0;
    };
    struct Subvolume
    {
        quint64 parent = 0;
        quint64 folder = 0;
        QByteArray name;
        quint64 generation = 0;
    };

    void addVersion(quint64 inode, const Version &version);
    const Version *find(quint64 tree, quint64 inode, quint64 generation) const;
    const Version *findIn(quint64 tree, quint64 inode, quint64 generation) const;
    quint64 originOf(quint64 tree) const;

    QHash<quint64, QVector<Version>> m_versions; ///< By inode.
    QHash<quint64, QVector<Change>> m_changes;   ///< By inode of the directory.
    QHash<quint64, Subvolume> m_subvolumes;
    QHash<QByteArray, quint64> m_trees;     ///< By their id.
    QHash<quint64, QByteArray> m_originIds; ///< By tree.
    std::map<quint64, qint64> m_times;
};

} // namespace services::recoveryd::btrfs
