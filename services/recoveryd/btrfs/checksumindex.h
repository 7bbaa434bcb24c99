#pragma once

#include "recoveryd/btrfs/node.h"
#include "recoveryd/devices/mediareader.h"

#include <QCache>

#include <vector>

namespace services::recoveryd::btrfs {

/// The leaves of all times that hold sums of the contents of files. Keeps only where they are. One
/// thread.
class ChecksumIndex
{
public:
    void add(const NodeView &leaf, qint64 offset);
    /// Sorts; to be called once, behind the last add().
    void finish();
    bool isEmpty() const { return m_leaves.empty(); }

    /// The sums of `count` sectors from an address on, as they were first written in `generation`
    /// or later; one behind the other. `isKnown` tells for each sector whether there is one.
    QByteArray sums(const MediaReader &media, const NodeFormat &format, quint64 address, int count,
                    quint64 generation, QVector<bool> *isKnown) const;

private:
    struct Leaf
    {
        quint64 first = 0; ///< Addresses.
        quint64 end = 0;
        quint64 farthest = 0; ///< The greatest end of this and all leaves before it.
        quint64 generation = 0;
        qint64 offset = 0; ///< On the device.
    };

    std::vector<Leaf> m_leaves; ///< Ascending by `first`.
    mutable QCache<qint64, QByteArray> m_cache{256};
};

} // namespace services::recoveryd::btrfs
