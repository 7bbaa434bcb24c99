#pragma once

#include "recoveryd/ext/undelete/history.h"

#include <functional>
#include <map>

namespace services::recoveryd::ext {

/// The journal of an ext3/4 volume, read as a whole and not from its head on: what stands behind
/// the head is the history of earlier transactions. Source: the kernel's
/// Documentation/filesystems/ext4/journal. One thread.
class Journal
{
public:
    /// Takes a block that a descriptor gives a place to. Only in the order of the journal.
    using Placed = std::function<void(const Version &version, const QByteArray &bytes)>;
    /// Asked between pieces, with the bytes read so far; false ends the sweep.
    using GoesOn = std::function<bool(qint64 done)>;

    /// A journal block that no descriptor speaks of any more.
    struct Stray
    {
        quint32 at = 0;
        Order order = kAnyTime; ///< As the next surviving header tells.
    };

    explicit Journal(const Layout &layout)
        : m_layout(layout)
    {}

    /// Finds the journal by its runs of blocks of the volume, in order. False if they hold none.
    [[nodiscard]] bool open(const std::vector<std::pair<qint64, qint64>> &runs);
    /// It was not closed in order: some of it has yet to be written to its place.
    bool isDirty() const { return m_start != 0; }
    qint64 size() const { return m_blockCount * m_layout.blockSize(); }

    /// Reads all of it. False if it was ended.
    [[nodiscard]] bool sweep(const Placed &placed, const GoesOn &goesOn);
    const std::vector<Stray> &strays() const { return m_strays; }
    const BlockHistory &history() const { return m_history; }
    BlockHistory &history() { return m_history; }

    /// A block of the journal; zeros where it cannot be read. The last ones are kept.
    QByteArray read(quint32 at) const;
    /// The bytes of a version as they belong on the volume.
    QByteArray read(const Version &version) const;
    /// The block of the volume in which a block of the journal stands; 0 if it is outside.
    qint64 placeOf(quint32 at) const;

    /// The block's version in the transactions that are committed but perhaps not yet written to
    /// their places, if there is one; null else. What stands there counts, not the volume.
    const Version *pending(qint64 block) const;
    bool hasPending() const { return m_pendingEnd > kSequenceBase; }
    /// Seconds since the epoch at which the transaction was committed; 0 if that is not known.
    qint64 commitTime(Order order) const;
    /// The first transaction known to be committed at that second or later; kNow if there is none.
    Order orderAt(qint64 seconds) const;

private:
    struct Tag
    {
        qint64 block = 0;
        quint32 flags = 0;
        quint32 checksum = 0;
    };
    struct Claims
    {
        std::vector<Tag> tags;
        size_t next = 0;
        quint32 sequence = 0;
    };

    [[nodiscard]] bool parseSuperblock(const QByteArray &bytes);
    void readHeader(quint32 at, const QByteArray &bytes);
    void readDescriptor(const QByteArray &bytes, quint32 sequence);
    void readRevokes(const QByteArray &bytes, Order order);
    void place(quint32 at, const QByteArray &bytes, const Placed &placed);
    void placeWrapped(const Placed &placed);
    void settleStrays(Order order);
    void findPending();
    bool hasRightTail(const QByteArray &bytes) const;
    bool hasRightChecksum(const Tag &tag, quint32 sequence, const QByteArray &bytes) const;
    Order orderOf(quint32 sequence) const { return sequence - m_sequence + kSequenceBase; }
    bool hasFeature(quint32 feature) const { return (m_features & feature) != 0; }

    const Layout &m_layout;
    std::vector<std::pair<qint64, qint64>> m_runs;
    std::vector<quint32> m_runStarts; ///< The journal block that each run begins with.
    qint64 m_blockCount = 0;
    quint32 m_first = 1;
    quint32 m_end = 0; ///< Behind the last block of the log; fast commits follow.
    quint32 m_sequence = 0;
    quint32 m_start = 0; ///< 0: everything is written to its place.
    quint32 m_features = 0;
    quint32 m_seed = 0;

    Claims m_claims;
    bool m_hasHeader = false;
    quint32 m_firstHeader = 0;
    std::vector<quint32> m_unsettled; ///< Strays before the next header.
    std::vector<Stray> m_strays;
    BlockHistory m_history;
    std::map<Order, qint64> m_commits;                   ///< Seconds by transaction.
    std::vector<std::pair<qint64, Order>> m_commitTimes; ///< The same, ascending.
    Order m_pendingEnd = kSequenceBase;
    mutable qint64 m_windowAt = -1;
    mutable QByteArray m_window;
};

} // namespace services::recoveryd::ext
