#pragma once

#include "recoveryd/ext/undelete/inode.h"

#include <vector>

namespace services::recoveryd::ext {

/// A block of the volume as it stood after a transaction; its bytes are a block of the journal.
struct Version
{
    qint64 block = 0;
    Order order = kAnyTime;
    quint32 at = 0;         ///< Block of the journal.
    bool isEscaped = false; ///< The journal holds zeros for the magic number at its start.
};

/// Which blocks have older versions in the journal, and where. 24 bytes a version; the bytes are
/// read when they are wanted. One thread.
class BlockHistory
{
public:
    void add(const Version &version) { m_versions.push_back(version); }
    /// From the transaction on, older versions of the block must not be written to it.
    void addRevoke(qint64 block, Order order) { m_revokes.emplace_back(block, order); }
    /// To be called after the last add() and before anything is asked.
    void finish();

    using Iterator = std::vector<Version>::const_iterator;
    /// All versions of a block, the oldest first.
    std::pair<Iterator, Iterator> versionsOf(qint64 block) const;
    /// The newest version not newer than `order`; null if there is none.
    const Version *newest(qint64 block, Order order) const;
    /// Whether the block was revoked in a transaction from `from` to `to`.
    bool isRevoked(qint64 block, Order from, Order to) const;
    /// Whether a block of the run has a version newer than `order`; the number of such blocks.
    qint64 changedSince(qint64 block, qint64 count, Order order) const;
    const std::vector<Version> &versions() const { return m_versions; }
    bool isEmpty() const { return m_versions.empty(); }

private:
    std::vector<Version> m_versions;
    std::vector<std::pair<qint64, Order>> m_revokes;
};

} // namespace services::recoveryd::ext
