#pragma once

#include "recoveryd/ext/undelete/journal.h"
#include "recoveryd/scan/hashindex.h"

namespace services::recoveryd::ext {

/// What an inode said in the transactions `first` to `last`, as far as they are known.
struct InodeState
{
    Inode inode;
    Order first = kAnyTime;
    Order last = kAnyTime;
    quint32 at = 0;   ///< Block of the journal that holds it.
    quint32 slot = 0; ///< In that block.
    int next = -1;    ///< Another state of the same life.
};

/// One file's use of an inode number, told apart from others by generation and time of birth.
struct Life
{
    quint32 number = 0;
    quint32 generation = 0;
    qint32 birth = 0;
    /// When it is known to have been in use.
    Order first = kNow;
    Order last = kAnyTime;
    /// What else can belong to it, such as names: from the end of the life before to the beginning
    /// of the next. Set by finish().
    Order from = kAnyTime;
    Order to = kNow;
    Order goneAt = kNow;      ///< The first transaction known after its end.
    quint32 deletionTime = 0; ///< Seconds; 0 if it is not known.
    int states = -1;          ///< The newest state first, after finish().
    quint8 type = 0;          ///< As directory entries have it.
    bool isCurrent = false;   ///< The volume has it now.
};

/// All files that had an inode number within the journal's memory. One thread.
class InodeHistory
{
public:
    /// Takes an inode as it stood after a transaction.
    void add(quint32 number, const Inode &inode, Order order, quint32 at, quint32 slot);
    /// Takes what the volume says now of a number, `isInUse` as its bitmaps have it.
    void addCurrent(quint32 number, const Inode &inode, bool isInUse);
    /// Sorts the lives by number, the oldest first, and sets their bounds. To be called between
    /// the last add() and the first question.
    void finish(const Journal &journal);

    const std::vector<Life> &lives() const { return m_lives; }
    const InodeState &state(int index) const { return m_states[size_t(index)]; }
    bool hasNumber(quint32 number) const;
    /// The life that has the number at that time; null if none is known.
    const Life *lifeAt(quint32 number, Order order) const;

private:
    Life *lifeOf(quint32 number, const Inode &inode);
    void addState(Life *life, const InodeState &added);
    void sortStates(Life *life);

    std::vector<Life> m_lives;
    std::vector<InodeState> m_states;
    HashIndex m_byIdentity; ///< Index of a life plus one; until finish().
};

} // namespace services::recoveryd::ext
