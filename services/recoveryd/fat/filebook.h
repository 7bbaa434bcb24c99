#pragma once

#include "recoveryd/fat/allocationtable.h"
#include "recoveryd/fat/directoryentry.h"
#include "recoveryd/fat/foldertree.h"
#include "recoveryd/fat/occupancy.h"
#include "recoveryd/ntfs/recyclebin.h"
#include "recoveryd/scan/scanner.h"

#include <vector>

namespace services::recoveryd::fat {

/// What became of a file.
enum class Life : quint8 {
    Live,    ///< It exists.
    Former,  ///< It existed when its directory was lost, by a format or with its parent.
    Deleted, ///< It was deleted by itself.
};

/// The files that the directories of one volume name. Where a file's chain is gone from the table,
/// its clusters are worked out: from the first one on, without those that were in use when it was
/// written. One thread.
class FileBook
{
public:
    struct Volume
    {
        const MediaReader &media;
        const ClusterGrid &grid;
        const AllocationTable *table; ///< Null if none belongs to the directories.
        const ClusterSet &used;       ///< By the table or bitmap.
    };

    FileBook(const Volume &volume, const FolderTree &folders);

    /// `lacksHighHalf`: the driver may have cleared the high half of the first cluster's number.
    void add(const DirectoryEntry &entry, int folder, Life life, bool lacksHighHalf = false);
    /// Clusters that hold a directory's entries still, so that no file has had them since.
    void addDirectory(const ClusterRuns &runs, qint64 createdMs);

    /// Where existing files end within their last cluster: what follows there is older. Bytes from
    /// the start of the cluster, by its number.
    QHash<quint32, int> slack() const;

    /// Works the clusters out and reports. False if the observer ended it.
    [[nodiscard]] bool report(bool listsExisting, ScanObserver &observer);

private:
    /// Compact: a card may hold a million files.
    struct File
    {
        qint64 size = 0;
        qint64 written = 0;
        qint64 createdMs = 0;
        qint64 modifiedMs = 0;
        quint32 nameAt = 0;
        quint32 first = 0;
        int folder = 0;
        quint16 nameLength = 0;
        Life life = Life::Live;
        bool isContiguous : 1;
        bool lacksHighHalf : 1;
        bool isChained : 1; ///< Its clusters are from the table.
        bool isSure : 1;    ///< Its clusters are known.
        bool isGuessed : 1; ///< They were worked out, for want of a chain.
        bool isDropped : 1; ///< Another name of a file that is listed.
        bool isSplit : 1;   ///< Its clusters are in m_split.

        qint64 allocatedMs() const { return qMax(createdMs, modifiedMs); }
    };

    QByteArray nameOf(const File &file) const;
    ClusterRuns runsOf(std::size_t index) const;
    void setRuns(std::size_t index, const ClusterRuns &runs, bool isSure);
    FileContent contentOf(std::size_t index) const;
    Finding::Check check(const File &file, const ClusterRuns &runs) const;

    [[nodiscard]] bool placeLive(ScanObserver &observer);
    [[nodiscard]] bool placeLost(ScanObserver &observer);
    bool placeByTable(std::size_t index);
    void placeByGuess(std::size_t index);
    [[nodiscard]] bool completeFirstCluster(File *file) const;
    void dropOtherNames();
    void settleConflicts();
    void settleConflict(std::size_t index, const std::vector<std::size_t> &others);
    void readRecycleBin();
    Finding makeFinding(std::size_t index);

    Volume m_volume;
    const FolderTree &m_folders;
    QByteArray m_names;
    std::vector<File> m_files;
    QHash<quint32, ClusterRuns> m_split; ///< By index, of files in more than one piece.
    Occupancy m_occupied;
    ClusterSet m_owned; ///< By existing files that the directories name.
    // Numbers above 65,535 are in use, and in deleted entries, too: older Windows clears them
    // there.
    bool m_usesHighHalf = false;
    bool m_keepsHighHalf = false;
    ntfs::RecycleBin m_recycleBin;

    // FAT counts in steps of two seconds when a file was written.
    static constexpr qint64 kTimeStep = 2000;
};

} // namespace services::recoveryd::fat
