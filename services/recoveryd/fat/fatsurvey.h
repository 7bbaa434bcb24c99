#pragma once

#include "recoveryd/fat/fatlayout.h"
#include "recoveryd/fat/filebook.h"
#include "recoveryd/fat/folderqueue.h"
#include "recoveryd/fat/shortentries.h"

#include <QHash>

namespace services::recoveryd::fat {

/// A directory that begins at a byte of the volume and says that it is another cluster than the
/// survey's grid has there: a trace of an earlier format.
struct StrayDirectory
{
    qint64 offset = 0;
    quint32 cluster = 0;
};

/// Reads the directories of one format of a FAT volume: those that can be reached from the root, in
/// use or deleted, and those found by sweeping. One thread.
class FatSurvey
{
public:
    /// `table`: null for an earlier format, of which only directories are left.
    FatSurvey(const MediaReader &media, const FatLayout &layout, const AllocationTable *table);

    /// Follows the tree. False if the observer ended it.
    [[nodiscard]] bool walk(ScanObserver &observer);
    /// Looks for lost directories in what walk() has not seen.
    /// In free clusters, behind the ends of existing files, and with `includesUsed` in all others.
    [[nodiscard]] bool sweep(const Ranges &ranges, bool includesUsed, ScanObserver &observer,
                             qint64 *done);
    [[nodiscard]] bool report(bool listsExisting, ScanObserver &observer);

    const QVector<StrayDirectory> &strays() const { return m_strays; }

private:
    struct Folder
    {
        quint32 first = 0; ///< 0: the root of fixed size.
        int node = FolderTree::kNone;
        Life life = Life::Live;
    };
    /// A directory that goes on in a cluster which is not known.
    struct OpenEnd
    {
        quint32 last = 0;
        Folder folder;
        qint64 lastCreatedMs = Finding::kUnknownTime;
        ShortEntryReader reader; ///< With the part of a name that is still open.
    };

    /// Entries without a head, up to the end of a cluster.
    struct LoosePart
    {
        quint32 cluster = 0;
        int from = 0; ///< Bytes.
    };

    /// What is carried from one cluster of a directory to the next.
    struct Reading
    {
        Folder folder;
        ShortEntryReader reader;
        bool isBehindEnd = false;
        qint64 lastCreatedMs = Finding::kUnknownTime;
    };

    ClusterRuns runsOf(const Folder &folder) const;
    [[nodiscard]] bool readQueued(ScanObserver &observer);
    void readFolder(const Folder &folder);
    void readFixedRoot();
    void readFurther(Reading *reading, quint32 last);
    void readSlots(const QByteArray &bytes, Reading *reading);
    void takeEntry(const ShortEntryReader &reader, Reading *reading);
    void takeSubfolder(const DirectoryEntry &entry, const Folder &parent, Life life);
    bool isHeadOf(quint32 cluster, const Folder &parent) const;
    quint32 headOf(const DirectoryEntry &entry, const Folder &parent, Life life) const;
    void visit(quint32 cluster, const char *bytes, int length);
    void visitHead(quint32 cluster, int at, quint32 own);
    void visitLoose(quint32 cluster, int from, const char *bytes, int length);
    void readOrphans();
    void attachLoose();

    const MediaReader &m_media;
    FatLayout m_layout;
    const AllocationTable *m_table;
    ClusterSet m_used;
    ClusterSet m_read; ///< Clusters whose entries are known.
    FolderTree m_folders;
    QHash<quint32, int> m_nodes; ///< Of directories by their first cluster.
    FolderQueue<Folder> m_queue;

    QVector<Folder> m_orphans;
    QVector<LoosePart> m_loose;
    QHash<quint32, int> m_slack; ///< See FileBook::slack().
    bool m_includesUsed = false;
    QVector<OpenEnd> m_openEnds;
    QVector<StrayDirectory> m_strays;
    FileBook m_book;
};

} // namespace services::recoveryd::fat
