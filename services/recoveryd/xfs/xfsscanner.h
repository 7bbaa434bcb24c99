#pragma once

#include "recoveryd/scan/scancontext.h"
#include "recoveryd/scan/scanner.h"
#include "recoveryd/xfs/directoryreader.h"
#include "recoveryd/xfs/findingmaker.h"
#include "recoveryd/xfs/formervolume.h"
#include "recoveryd/xfs/inodewalk.h"

namespace services::recoveryd::xfs {

/// Finds files by the metadata of an XFS volume: by the earlier states of inodes and directories
/// that its log remembers, by inodes that were freed, and by blocks of inodes and directories that
/// are in free space now. A quick scan looks only through the start of each group's free space.
class XfsScanner : public Scanner
{
public:
    explicit XfsScanner(const ScanContext &context);

    QString phaseText() const override;
    qint64 totalWork() const override;
    bool scan(ScanObserver &observer, QString *error) override;

private:
    [[nodiscard]] bool scanAll(ScanObserver &observer);
    [[nodiscard]] bool readLog(ScanObserver &observer);
    [[nodiscard]] bool walkInodes(ScanObserver &observer);
    [[nodiscard]] bool visitKnownPlaces(ScanObserver &observer);
    [[nodiscard]] bool sweep(ScanObserver &observer);
    [[nodiscard]] bool report(ScanObserver &observer);
    [[nodiscard]] bool reportExisting(ScanObserver &observer);
    Ranges rangesToSweep();

    void takeInode(quint64 number, const View &bytes, bool isAllocated);
    void takeInUse(quint64 number, const Inode &inode);
    void takeFreed(quint64 number, const Inode &onDisk);
    void takeInodeBlock(qint64 offset, const QByteArray &block);
    void takeStray(quint64 number, const Inode &inode, bool isInFreeSpace);
    /// The state that counts: that on disk, or that in the log where it is not yet on disk.
    Inode currentState(quint64 number, const Inode &onDisk);
    /// The same for an inode's place; `onDisk` lacks its fork where no inode stands there yet.
    [[nodiscard]] bool stateOf(quint64 number, const View &bytes, Inode *onDisk, Inode *state);
    bool isInFreeSpace(qint64 offset) const;

    ScanContext m_context;
    XfsVolume m_volume;
    History m_history;
    TreeHistory m_trees;
    NameBook m_names;
    std::unique_ptr<InodeWalk> m_walk;
    std::unique_ptr<DirectoryReader> m_directories;
    std::unique_ptr<FindingMaker> m_maker;
    std::unique_ptr<FormerVolumes> m_former;
    Ranges m_free;
    std::vector<bool> m_isFreeKnown; ///< By group.
    Ranges m_sweep;
    QSet<qint64> m_visited; ///< Blocks of inodes outside of chunks, by offset.
    std::vector<quint64> m_logNumbers;
    std::vector<LostFile> m_stray; ///< Existing files of groups whose tree is damaged.
    qint64 m_done = 0;
};

} // namespace services::recoveryd::xfs
