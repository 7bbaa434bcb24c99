#pragma once

#include "recoveryd/ext/undelete/blockmap.h"
#include "recoveryd/ext/undelete/inodehistory.h"
#include "recoveryd/ext/undelete/namebook.h"

#include <memory>
#include <unordered_map>

namespace services::recoveryd::ext {

/// Fills the history of inodes and names with what the journal remembers, blocks without a
/// descriptor included. One thread.
class JournalHistory
{
public:
    JournalHistory(const Layout &layout, InodeHistory *inodes, NameBook *names)
        : m_layout(layout)
        , m_inodes(inodes)
        , m_names(names)
    {}

    /// Reads the whole journal. False if `goesOn` ended it.
    [[nodiscard]] bool read(Journal *journal, const Journal::GoesOn &goesOn);

private:
    void takeBlock(const Version &version, const QByteArray &bytes);
    void takeInodes(quint32 first, const QByteArray &bytes, const Version &version);
    void takeNames(const QByteArray &bytes, const Version &version);
    void takeInlineNames(quint32 number, const Inode &inode, const QByteArray &bytes, quint32 slot,
                         Order order);
    bool takeStray(Journal *journal, const Journal::Stray &stray);
    void matchByGeneration(Journal *journal, const Journal::GoesOn &goesOn);

    const Layout &m_layout;
    InodeHistory *m_inodes;
    NameBook *m_names;
    std::vector<Journal::Stray> m_unplaced; ///< Look like blocks of an inode table.
};

/// The journal of a volume, by its inode or by the copy of its map in the superblock. Null if the
/// volume has none, has it on another device, or it is damaged. The layout must outlive it.
std::unique_ptr<Journal> openJournal(const Layout &layout);
/// Reads what a journal has yet to write to its places, group descriptors into the layout.
void readPending(Journal *journal, Layout *layout);
/// Applies group descriptors among what the journal has yet to write.
void applyPending(const Journal &journal, Layout *layout);

} // namespace services::recoveryd::ext
