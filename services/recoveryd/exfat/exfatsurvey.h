#pragma once

#include "recoveryd/exfat/entryset.h"
#include "recoveryd/exfat/exfatlayout.h"
#include "recoveryd/fat/filebook.h"
#include "recoveryd/fat/folderqueue.h"

#include <QHash>

namespace services::recoveryd::exfat {

/// Reads the directories of an exFAT volume: those that can be reached from the root, in use or
/// deleted, and those found by sweeping. Directories do not say which they are, so a swept cluster
/// is placed by the entry that names it. One thread.
class ExfatSurvey
{
public:
    ExfatSurvey(const MediaReader &media, const ExfatLayout &layout,
                const fat::AllocationTable &table);

    /// Follows the tree. False if the observer ended it.
    [[nodiscard]] bool walk(ScanObserver &observer);
    /// Looks for lost directories in what walk() has not seen: in free clusters, behind the ends
    /// of existing files, and with `includesUsed` in all others.
    [[nodiscard]] bool sweep(const Ranges &ranges, bool includesUsed, ScanObserver &observer,
                             qint64 *done);
    [[nodiscard]] bool report(bool listsExisting, ScanObserver &observer);

private:
    struct Folder
    {
        fat::ClusterRuns runs;
        int node = fat::FolderTree::kNone;
        fat::Life life = fat::Life::Live;
    };

    [[nodiscard]] bool readQueued(ScanObserver &observer);
    void readFolder(const Folder &folder);
    void readSlots(const QByteArray &bytes, const Folder &folder, EntrySetReader *reader);
    void takeEntry(const fat::DirectoryEntry &entry, const Folder &folder);
    void takeSubfolder(const fat::DirectoryEntry &entry, const Folder &parent, fat::Life life);
    fat::ClusterRuns runsOf(const fat::DirectoryEntry &entry, fat::Life life) const;
    /// The part of a cluster that no existing file has, for sweeping: its offset; -1: none.
    int freePartOf(quint32 cluster) const;
    void visit(quint32 cluster, const char *bytes, int length);
    void readOrphans();

    const MediaReader &m_media;
    ExfatLayout m_layout;
    const fat::AllocationTable &m_table;
    fat::ClusterSet m_used;
    bool m_includesUsed = false;
    fat::ClusterSet m_read; ///< Clusters whose entries are known.
    fat::FolderTree m_folders;
    QHash<quint32, int> m_nodes; ///< Of directories and swept clusters, by cluster.
    fat::FolderQueue<Folder> m_queue;

    QVector<quint32> m_orphans;
    QHash<quint32, int> m_slack; ///< See FileBook::slack().
    fat::FileBook m_book;
};

} // namespace services::recoveryd::exfat
