#pragma once

#include "recoveryd/ext/undelete/findingmaker.h"
#include "recoveryd/ext/undelete/formerfiles.h"
#include "recoveryd/ext/undelete/indirectfiles.h"
#include "recoveryd/ext/undelete/journalhistory.h"
#include "recoveryd/ext/undelete/volumewalk.h"
#include "recoveryd/scan/scancontext.h"

namespace services::recoveryd::ext {

/// Finds files by the metadata of an ext2/3/4 volume: by the earlier states of inodes and
/// directories that its journal remembers, and by what is left in inode tables and directories.
class ExtScanner : public Scanner
{
public:
    explicit ExtScanner(const ScanContext &context);

    QString phaseText() const override;
    qint64 totalWork() const override;
    bool scan(ScanObserver &observer, QString *error) override;

private:
    [[nodiscard]] bool scanAll(ScanObserver &observer);
    [[nodiscard]] bool readJournal(ScanObserver &observer);
    [[nodiscard]] bool readCurrentInodes(ScanObserver &observer);
    void prepareDirectories();
    [[nodiscard]] bool reportLives(bool onlyFull, ScanObserver &observer);
    [[nodiscard]] bool walkTables(ScanObserver &observer);
    [[nodiscard]] bool sweepFreeSpace(ScanObserver &observer);
    void readFree();
    Ranges rangesToSweep() const;
    void takeFreeBlock(qint64 block, const QByteArray &bytes);
    [[nodiscard]] bool reportFormer(ScanObserver &observer);
    [[nodiscard]] bool reportExisting(ScanObserver &observer);
    void takeStanding(quint32 number, const Inode &inode);
    [[nodiscard]] bool reportStanding(ScanObserver &observer);
    bool isWanted(const Entry &entry) const;
    VolumeWalk::GoesOn progress(ScanObserver &observer, qint64 before);

    ScanContext m_context;
    Layout m_layout;
    QString m_openError;
    bool m_isOpen = false;
    std::unique_ptr<Journal> m_journal;
    std::unique_ptr<Blocks> m_blocks;
    std::unique_ptr<MapReader> m_maps;
    InodeHistory m_inodes;
    NameBook m_names;
    Tree m_tree;
    std::unique_ptr<VolumeWalk> m_walk;
    std::unique_ptr<FormerFiles> m_former;
    std::unique_ptr<IndirectFiles> m_indirect; ///< Null where files have extents.
    Ranges m_free;
    std::vector<quint32> m_standing; ///< Freed inodes that still have their map; ascending.
    std::vector<bool> m_isReported;  ///< By index of the life.
    qint64 m_done = 0;
};

} // namespace services::recoveryd::ext
