#pragma once

#include "recoveryd/xfs/fork.h"
#include "recoveryd/xfs/inode.h"

#include <QHash>

#include <vector>

namespace services::recoveryd::xfs {

/// A state of a file that was lost: it was deleted, truncated, or its blocks were replaced.
struct LostFile
{
    quint64 number = 0;
    Inode inode;       ///< The last state that had the content; may lack the fork.
    quint64 begin = 0; ///< When the number's life began; 0: not known.
    quint64 end = 0;   ///< When it ended; 0: not known, kNow: it goes on.
    qint64 deletedMs = Finding::kUnknownTime;
    bool isFromLog = false;
    bool isSizeKnown = true; ///< False: nothing but the block map is left.
};

/// Follows the inodes through their states, in the order of the log, and keeps what is lost on the
/// way.
class History
{
public:
    /// The state after a change.
    void add(quint64 number, const Inode &inode, bool isFromLog);
    /// The state before a change, from a block of inodes in the log: without its fork, and of an
    /// unknown age. It only helps where nothing is known of this life.
    void addEarlier(quint64 number, const Inode &inode);
    /// The last state; null if there is none.
    const Inode *now(quint64 number) const;

    /// That the inode's last state is no more, although nothing tells of its end.
    void loseNow(quint64 number);
    /// A state that something else told.
    void lose(const LostFile &lost);

    /// What is lost so far.
    std::vector<LostFile> takeLost();
    /// Whether a lost state of this life was given.
    bool hasLost(quint64 number, quint32 generation) const
    {
        return m_lostLives.contains(qMakePair(number, generation));
    }
    /// Numbers of all inodes in the log, ascending.
    std::vector<quint64> numbers() const;

private:
    struct Track
    {
        Inode inode;
        quint64 begin = 0;
        bool isFromLog = false;
    };

    void lose(quint64 number, const Track &track, const Inode &next);

    QHash<quint64, Track> m_tracks;
    QHash<QPair<quint64, quint32>, bool> m_lostLives;
    std::vector<LostFile> m_lost;
};

} // namespace services::recoveryd::xfs
