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

/// The runs of the journal: by its inode, else by the copy of its map in the superblock. Empty if
/// the volume has none, or has it on another device.
std::vector<std::pair<qint64, qint64>> journalRuns(const Layout &layout);

} // namespace services::recoveryd::ext
